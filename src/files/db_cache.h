// The keyed store's chunk cache: every byte of the store file is read and
// written through it. See db_cache.cpp for its layout and eviction rule.
#ifndef QXBASE_FILES_DB_CACHE_H
#define QXBASE_FILES_DB_CACHE_H

#include <cstdint>

#include "files/db_format.h"

namespace qx::db {

inline constexpr int kResidentLimit = 50;

struct ChunkSlot {
  uint32_t flags;  // kDirty, kLoaded, kReserved
  uint32_t clock;  // access clock at the last touch
  unsigned char *bytes;
};

struct Cache {
  int fd;
  uint32_t chunk_size;
  int limit;             // chunks held in memory at most (kResidentLimit)
  int loaded;            // chunks held now
  uint32_t chunk_count;  // chunks covering the heap
  uint32_t last_size;    // bytes of the last chunk that belong to the heap
  uint32_t clock;
  ChunkSlot **scratch;  // chunk_count + 1 pointers, for sorting by age
  ChunkSlot *slots;     // chunk_count + 1 slots
};

// Plain descriptor I/O at the current position, outside the cache: true when
// exactly len bytes went through. The cache loads and writes chunks with them;
// creation and UTL_DB_UNLOCK, which work on the file directly, use them too.
bool ReadFully(int fd, unsigned char *dst, uint32_t len);
bool WriteFully(int fd, const unsigned char *src, uint32_t len);

// Builds a cache over a heap of file_size bytes; prints the CreateHeap line
// and returns null when the chunk size is unusable or memory runs out.
Cache *CreateCache(int fd, uint32_t chunk_size, uint64_t file_size);
// Frees every chunk buffer and the cache; the descriptor stays open.
void DestroyCache(Cache *cache);

// Copy len bytes between the heap at addr and memory. Out-of-range addresses
// print the HeapSeek line and the routine's own line and fail.
bool HeapRead(Cache *cache, uint64_t addr, void *dst, uint32_t len);
bool HeapWrite(Cache *cache, uint64_t addr, const void *src, uint32_t len);

// Writes every dirty chunk (the last one with its own size); stops at the
// first failure after printing the FlushHeap line.
bool FlushHeap(Cache *cache);

// Bytes of the heap: (chunk count - 1) x chunk size + last-chunk size.
uint64_t HeapEnd(const Cache *cache);

// Extends the file and the cache by `extension` bytes; prints the ExtendHeap
// line on a failed seek or write. The new bytes read as zeros.
bool ExtendHeap(Cache *cache, uint32_t extension);

}  // namespace qx::db

#endif  // QXBASE_FILES_DB_CACHE_H
