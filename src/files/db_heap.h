// The keyed store's disk heap: allocation and release of blocks inside the
// store file. See db_heap.cpp for the free lists.
#ifndef QXBASE_FILES_DB_HEAP_H
#define QXBASE_FILES_DB_HEAP_H

#include <cstdint>

#include "files/db_format.h"

namespace qx::db {

// Returns the payload address of a block of at least `size` bytes (rounded up
// to the granularity), growing the file when no free block fits; 0 on failure
// after the documented diagnostic.
uint32_t DiskAlloc(UtlDb *db, uint32_t size);

// Puts the block of `payload` on the front of its free list.
bool DiskFree(UtlDb *db, uint32_t payload);

// The payload capacity of the block of `payload`, 0 when its record cannot be
// read (after the DiskAllocSize diagnostic).
uint32_t DiskAllocSize(UtlDb *db, uint32_t payload);

// Reads or writes the 12-byte record of the block at `block`.
bool ReadRecord(UtlDb *db, uint64_t block, BlockRecord *record);
bool WriteRecord(UtlDb *db, uint64_t block, const BlockRecord &record);

// Reads or writes one little-endian word of the heap.
bool ReadWord(UtlDb *db, uint64_t addr, uint32_t *value);
bool WriteWord(UtlDb *db, uint64_t addr, uint32_t value);

}  // namespace qx::db

#endif  // QXBASE_FILES_DB_HEAP_H
