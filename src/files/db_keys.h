// Primary keys and their names in the keyed store. See db_keys.cpp.
#ifndef QXBASE_FILES_DB_KEYS_H
#define QXBASE_FILES_DB_KEYS_H

#include <cstdint>

#include "files/db_format.h"

namespace qx::db {

// True when 0 <= key < the key total.
bool KeyInRange(const UtlDb *db, int key);

// Reads the entry of an in-range key and gives its address.
bool ReadEntry(UtlDb *db, int key, KeyEntry *entry, uint64_t *addr);
bool WriteEntry(UtlDb *db, uint64_t addr, const KeyEntry &entry);

// The bucket of a name under the store's hash selector.
uint32_t NameHash(uint32_t selector, const unsigned char *name, uint32_t length, uint32_t buckets);

// Takes a key off the free list (extending the key list when none is free)
// and, for a non-empty name, enters the name in its bucket. -1 on failure.
int AllocateKey(UtlDb *db, const char *name);

// The first key after `after` (from the bucket head when after < 0) in the
// chain of `name` whose name equals it, or -1.
int FindNamedKey(UtlDb *db, const char *name, int after);

// Unlinks the key from its bucket, frees its name and data blocks and puts it
// on the front of the free list.
bool FreeKey(UtlDb *db, int key);

// Releases the memory of the segment index.
void ForgetSegments(UtlDb *db);

}  // namespace qx::db

#endif  // QXBASE_FILES_DB_KEYS_H
