// utl_hash: chained hash tables of keyed data blocks.
//
// The header holds the bucket count, the four key functions and an array of
// primary buckets (chain count, chain head) indexed by bucket number minus 1;
// hash functions return 1-based bucket numbers. New entries go to the head
// of their chain. Each entry owns a copy of its key and, unless bit 31 of its
// size word marks a reference, a copy of its data block (no inline storage:
// every nonzero copied block is a separate allocation). Lookups compare the
// stored key length before calling the compare function.
//
// Statistics follow inserts and deletes: full buckets, overflow entries and
// the longest chain ever reached, which is deliberately never lowered.
// Reorganisation relinks the existing entries into a new table; keys and
// blocks are not copied. The reports and the source generator live in
// utl_hash_save.cpp.
#include "utl_hash.h"

#include <cstdint>
#include <cstring>

#include "common/error_record.h"
#include "containers/data_block.h"
#include "utl_error.h"
#include "utl_mem.h"

namespace qx::hash {
namespace {

constexpr const char *kTag = "utl_hash";
using Rules = BlockRules<0>;

constexpr ErrorRecord kNotFound{"UTL", "HASH", kFatal, "TOKEN_NOT_FOUND"};
constexpr ErrorRecord kNotFoundInfo{"UTL", "HASH", kInfo, "TOKEN_NOT_FOUND"};
constexpr ErrorRecord kDataOverflow{"UTL", "HASH", kWarning, "DATA_OVFL"};
constexpr ErrorRecord kCallbackFailed{"UTL", "HASH", kFatal, "FILE_ERROR"};
constexpr ErrorRecord kBadBucket{"UTL", "HASH", kFatal, "BAD_BUCKET_NUMBER"};

unsigned char *DataField(UTL_HASH_BUCKET *entry) {
  return reinterpret_cast<unsigned char *>(&entry->data);
}

char *CopyKey(const char *key) {
  const std::size_t size = std::strlen(key) + 1;
  if (size > 0xFFFFFFFFu) return nullptr;
  auto *copy = static_cast<char *>(UTL_DMEM_ALLOC(static_cast<unsigned int>(size), kTag, __LINE__));
  if (copy != nullptr) std::memcpy(copy, key, size);
  return copy;
}

int CompareKeys(const char *stored, const char *probe) {
  return std::strcmp(stored, probe);
}

unsigned int KeyLength(const char *key) {
  return static_cast<unsigned int>(std::strlen(key));
}

// Fills the header fields shared by UTL_HASH_CREATE and UTL_HASH_REORGANIZE.
UTL_HASH_TABLE *NewTable(unsigned int bucket_count, UTL_HASH_FUNCTION hash,
                         UTL_HASH_COPY_FUNCTION copy, UTL_HASH_LENGTH_FUNCTION length,
                         UTL_HASH_COMPARE_FUNCTION compare) {
  if (bucket_count == 0) return nullptr;
  auto *table =
      static_cast<UTL_HASH_TABLE *>(UTL_DMEM_ALLOC(sizeof(UTL_HASH_TABLE), kTag, __LINE__));
  if (table == nullptr) return TraceAndFail("UTL_HASH_CREATE", table);
  *table = UTL_HASH_TABLE{};
  table->buckets = static_cast<UTL_HASH_PRIMARY *>(
      UTL_DMEM_CALLOC(bucket_count, sizeof(UTL_HASH_PRIMARY), kTag, __LINE__));
  if (table->buckets == nullptr) {
    FreeAfterError(table, kTag, __LINE__);
    return TraceAndFail("UTL_HASH_CREATE", static_cast<UTL_HASH_TABLE *>(nullptr));
  }
  table->bucket_count = bucket_count;
  table->hash_function = hash != nullptr ? hash : UTL_HASH_DEFAULT_FUNCTION;
  table->copy_function = copy != nullptr ? copy : CopyKey;
  table->length_function = length != nullptr ? length : KeyLength;
  table->compare_function = compare != nullptr ? compare : CompareKeys;
  return table;
}

// The bucket slot of a bucket number, or null when the number is out of range.
UTL_HASH_PRIMARY *SlotOf(UTL_HASH_TABLE *table, unsigned int bucket) {
  if (bucket < 1 || bucket > table->bucket_count) return nullptr;
  return &table->buckets[bucket - 1];
}

// Where a key is, or would go. The lookup shared by every keyed operation.
struct Location {
  UTL_HASH_PRIMARY *slot = nullptr;  // null: no table, no key or a bad bucket
  UTL_HASH_BUCKET *entry = nullptr;  // null: the key is absent
  unsigned int key_length = 0;
};

UTL_HASH_BUCKET *ScanChain(UTL_HASH_TABLE *table, UTL_HASH_BUCKET *entry, const char *key,
                           unsigned int key_length) {
  for (; entry != nullptr; entry = entry->next) {
    if (entry->key_length == key_length && table->compare_function(entry->key, key) == 0)
      return entry;
  }
  return nullptr;
}

Location Locate(UTL_HASH_TABLE *table, const char *key) {
  Location at;
  if (table == nullptr || key == nullptr || table->buckets == nullptr) return at;
  at.slot = SlotOf(table, table->hash_function(key, table->bucket_count));
  if (at.slot == nullptr) return at;
  at.key_length = table->length_function(key);
  at.entry = ScanChain(table, at.slot->head, key, at.key_length);
  return at;
}

// A key the caller's hash function puts outside the table.
bool IsBadBucket(UTL_HASH_TABLE *table, const char *key, const Location &at) {
  return at.slot == nullptr && table != nullptr && key != nullptr && table->buckets != nullptr;
}

// Pushes entry at the head of slot's chain and updates the statistics as an
// insert does (shared by insert and reorganisation).
void PushEntry(UTL_HASH_TABLE *table, UTL_HASH_PRIMARY *slot, UTL_HASH_BUCKET *entry) {
  entry->prev = nullptr;
  entry->next = slot->head;
  if (slot->head != nullptr) slot->head->prev = entry;
  slot->head = entry;
  if (++slot->count == 1) {
    ++table->full_buckets;
  } else {
    ++table->overflow_count;
  }
  if (static_cast<unsigned int>(slot->count) > table->max_chain)
    table->max_chain = static_cast<unsigned int>(slot->count);
}

// Traces the failing step of FillEntry: numbered for the copying insert, one
// line for the by-reference twin.
UTL_HASH_BUCKET *TraceFillFailure(bool by_reference, int site) {
  if (by_reference) {
    UTL_ERROR_ADD_TRACE("UTL_HASH_FILL_BUCKET_P");
  } else {
    TraceCallSite("UTL_HASH_FILL_BUCKET", site);
  }
  return nullptr;
}

// Builds an entry for a new key: the core of UTL_HASH_INSERT and
// UTL_HASH_INSERT_P. Returns null after tracing the failing step; nothing
// allocated on the way is kept.
UTL_HASH_BUCKET *FillEntry(UTL_HASH_TABLE *table, const char *key, unsigned int key_length,
                           unsigned int byte_count, const void *data, bool by_reference) {
  auto *entry =
      static_cast<UTL_HASH_BUCKET *>(UTL_DMEM_ALLOC(sizeof(UTL_HASH_BUCKET), kTag, __LINE__));
  if (entry == nullptr) return TraceFillFailure(by_reference, 10);
  *entry = UTL_HASH_BUCKET{};
  entry->key = table->copy_function(key);
  if (entry->key == nullptr) {
    FreeAfterError(entry, kTag, __LINE__);
    return TraceFillFailure(by_reference, 20);
  }
  entry->key_length = key_length;
  if (by_reference) {
    Rules::StoreReference(entry->size, DataField(entry), data, byte_count);
  } else if (!Rules::StoreCopy(entry->size, DataField(entry), data, byte_count, kTag, __LINE__)) {
    FreeAfterError(entry->key, kTag, __LINE__);
    FreeAfterError(entry, kTag, __LINE__);
    return TraceFillFailure(by_reference, 30);
  }
  return entry;
}

int Insert(UTL_HASH_TABLE *table, const char *key, unsigned int byte_count, const void *data,
           bool by_reference, const char *routine) {
  const Location at = Locate(table, key);
  if (IsBadBucket(table, key, at)) return Fail(kBadBucket, routine, 0);
  // A duplicate fails with the routine's trace alone: callers test for it.
  if (at.slot == nullptr || at.entry != nullptr) return TraceAndFail(routine, 0);
  UTL_HASH_BUCKET *entry = FillEntry(table, key, at.key_length, byte_count, data, by_reference);
  if (entry == nullptr) return TraceAndFail(routine, 0);
  PushEntry(table, at.slot, entry);
  return 1;
}

// Unlinks and releases one entry: the core of UTL_HASH_DELETE_BUCKET, which
// UTL_HASH_DELETE and the destroy family share.
int RemoveEntry(UTL_HASH_PRIMARY *slot, UTL_HASH_BUCKET *entry) {
  int ok = UTL_DMEM_FREE(entry->key, kTag, __LINE__);
  ok &= Rules::Release(entry->size, DataField(entry), kTag, __LINE__);
  if (entry->prev != nullptr) {
    entry->prev->next = entry->next;
  } else {
    slot->head = entry->next;
  }
  if (entry->next != nullptr) entry->next->prev = entry->prev;
  --slot->count;
  ok &= UTL_DMEM_FREE(entry, kTag, __LINE__);
  return ok ? 1 : TraceAndFail("UTL_HASH_DELETE_BUCKET", 0);
}

void SetOuts(void **data, unsigned int *byte_count, void *data_value, unsigned int count) {
  if (data != nullptr) *data = data_value;
  if (byte_count != nullptr) *byte_count = count;
}

// Hands out the data pointer and count of a key: the core of
// UTL_HASH_RETRIEVE_P and UTL_HASH_RETRIEVE_P_NOERRSET. Returns false (both
// outputs cleared) when the key is absent; recording that is the caller's.
bool RetrieveReference(UTL_HASH_TABLE *table, const char *key, void **data,
                       unsigned int *byte_count) {
  const Location at = Locate(table, key);
  if (at.entry == nullptr) {
    SetOuts(data, byte_count, nullptr, 0);
    return false;
  }
  SetOuts(data, byte_count, at.entry->data, qx::BlockCount(at.entry->size));
  return true;
}

// Checks that the new hash function places every stored key inside the new
// table before anything is moved, so a failure leaves the old table whole.
bool AllBucketsInRange(const UTL_HASH_TABLE *old_table, const UTL_HASH_TABLE *new_table) {
  for (unsigned int i = 0; i < old_table->bucket_count; ++i) {
    for (UTL_HASH_BUCKET *e = old_table->buckets[i].head; e != nullptr; e = e->next) {
      const unsigned int bucket = new_table->hash_function(e->key, new_table->bucket_count);
      if (bucket < 1 || bucket > new_table->bucket_count) return false;
    }
  }
  return true;
}

void MoveEntries(UTL_HASH_TABLE *from, UTL_HASH_TABLE *to) {
  const bool relength = from->length_function != to->length_function;
  for (unsigned int i = 0; i < from->bucket_count; ++i) {
    UTL_HASH_BUCKET *entry = from->buckets[i].head;
    while (entry != nullptr) {
      UTL_HASH_BUCKET *next = entry->next;
      if (relength) entry->key_length = to->length_function(entry->key);
      PushEntry(to, SlotOf(to, to->hash_function(entry->key, to->bucket_count)), entry);
      entry = next;
    }
  }
}

// Releases the storage of a table that holds no entries.
int FreeEmptyTable(UTL_HASH_TABLE *table) {
  UTL_HASH_PRIMARY *buckets = table->buckets;
  std::memset(static_cast<void *>(table), 0, sizeof *table);
  int ok = UTL_DMEM_FREE(buckets, kTag, __LINE__);
  ok &= UTL_DMEM_FREE(table, kTag, __LINE__);
  return ok;
}

}  // namespace
}  // namespace qx::hash

using namespace qx::hash;

extern "C" {

UTL_HASH_TABLE *UTL_HASH_CREATE(unsigned int bucket_count, UTL_HASH_FUNCTION hash,
                                UTL_HASH_COPY_FUNCTION copy, UTL_HASH_LENGTH_FUNCTION length,
                                UTL_HASH_COMPARE_FUNCTION compare) {
  return NewTable(bucket_count, hash, copy, length, compare);
}

unsigned int UTL_HASH_DEFAULT_FUNCTION(const char *key, unsigned int bucket_count) {
  if (key == nullptr || bucket_count == 0) return 1;
  const std::size_t length = std::strlen(key);
  // An empty key: first character is the terminator, so the product is 0;
  // the last character (the byte before the key) is not read.
  if (length == 0) return 1;
  const auto first = static_cast<std::int32_t>(static_cast<signed char>(key[0]));
  const auto middle = static_cast<std::int32_t>(static_cast<signed char>(key[length / 2]));
  const auto last = static_cast<std::int32_t>(static_cast<signed char>(key[length - 1]));
  // Wrapping 32-bit product, computed unsigned to keep it well defined.
  const std::uint32_t product = static_cast<std::uint32_t>(first) *
                                static_cast<std::uint32_t>(middle) *
                                static_cast<std::uint32_t>(last);
  return product % bucket_count + 1;
}

int UTL_HASH_INSERT(UTL_HASH_TABLE *table, const char *key, unsigned int byte_count,
                    const void *data) {
  return Insert(table, key, byte_count, data, false, "UTL_HASH_INSERT");
}

int UTL_HASH_INSERT_P(UTL_HASH_TABLE *table, const char *key, unsigned int byte_count, void *data) {
  return Insert(table, key, byte_count, data, true, "UTL_HASH_INSERT_P");
}

void UTL_HASH_RETRIEVE(UTL_HASH_TABLE *table, const char *key, unsigned int buffer_size,
                       void *buffer, unsigned int *byte_count) {
  const Location at = Locate(table, key);
  if (at.entry == nullptr) {
    if (byte_count != nullptr) *byte_count = 0;
    qx::RecordError(kNotFound, "UTL_HASH_RETRIEVE");
    return;
  }
  if (Rules::Retrieve(at.entry->size, DataField(at.entry), buffer, buffer_size, byte_count))
    qx::RecordError(kDataOverflow, "UTL_HASH_RETRIEVE");
}

void UTL_HASH_RETRIEVE_P(UTL_HASH_TABLE *table, const char *key, void **data,
                         unsigned int *byte_count) {
  if (!RetrieveReference(table, key, data, byte_count))
    qx::RecordError(kNotFound, "UTL_HASH_RETRIEVE_P");
}

void UTL_HASH_RETRIEVE_P_NOERRSET(UTL_HASH_TABLE *table, const char *key, void **data,
                                  unsigned int *byte_count) {
  RetrieveReference(table, key, data, byte_count);
}

void UTL_HASH_CHANGE(UTL_HASH_TABLE *table, const char *key, unsigned int byte_count,
                     const void *data) {
  const Location at = Locate(table, key);
  if (at.entry == nullptr) {
    qx::RecordError(kNotFound, "UTL_HASH_CHANGE");
    return;
  }
  UTL_HASH_BUCKET *entry = at.entry;
  if (Rules::OverwriteInPlace(entry->size, DataField(entry), data, byte_count)) return;
  Rules::Release(entry->size, DataField(entry), kTag, __LINE__);
  if (!Rules::StoreCopy(entry->size, DataField(entry), data, byte_count, kTag, __LINE__)) {
    entry->size = 0;
    entry->data = nullptr;
    UTL_ERROR_ADD_TRACE("UTL_HASH_CHANGE");
  }
}

void UTL_HASH_CHANGE_P(UTL_HASH_TABLE *table, const char *key, unsigned int byte_count,
                       void *data) {
  const Location at = Locate(table, key);
  if (at.entry == nullptr) {
    qx::RecordError(kNotFoundInfo, "UTL_HASH_CHANGE_P");
    return;
  }
  UTL_HASH_BUCKET *entry = at.entry;
  if (!Rules::Release(entry->size, DataField(entry), kTag, __LINE__))
    UTL_ERROR_ADD_TRACE("UTL_HASH_CHANGE_P");
  Rules::StoreReference(entry->size, DataField(entry), data, byte_count);
}

void UTL_HASH_DELETE(UTL_HASH_TABLE *table, const char *key) {
  const Location at = Locate(table, key);
  if (at.entry == nullptr) {
    qx::RecordError(kNotFoundInfo, "UTL_HASH_DELETE");
    return;
  }
  RemoveEntry(at.slot, at.entry);
  // The longest-chain statistic is deliberately left as it was.
  if (at.slot->count == 0) {
    --table->full_buckets;
  } else {
    --table->overflow_count;
  }
}

UTL_HASH_BUCKET *UTL_HASH_INQUIRE(UTL_HASH_TABLE *table, const char *key) {
  return Locate(table, key).entry;
}

UTL_HASH_BUCKET *UTL_HASH_SCAN_BUCKETS(UTL_HASH_TABLE *table, UTL_HASH_BUCKET *start,
                                       const char *key) {
  if (table == nullptr || key == nullptr) return nullptr;
  return ScanChain(table, start, key, table->length_function(key));
}

int UTL_HASH_COUNT_ALL(UTL_HASH_TABLE *table) {
  if (table == nullptr || table->buckets == nullptr) return 0;
  int count = 0;
  for (unsigned int i = 0; i < table->bucket_count; ++i) {
    for (UTL_HASH_BUCKET *e = table->buckets[i].head; e != nullptr; e = e->next)
      ++count;
  }
  return count;
}

void UTL_HASH_DO_ALL(UTL_HASH_TABLE *table, UTL_HASH_DO_FUNCTION callback, void *client_data) {
  if (table == nullptr || table->buckets == nullptr || callback == nullptr) return;
  for (unsigned int i = 0; i < table->bucket_count; ++i) {
    UTL_HASH_BUCKET *entry = table->buckets[i].head;
    while (entry != nullptr) {
      UTL_HASH_BUCKET *next = entry->next;
      if (!callback(table, entry->key, entry->data, qx::BlockCount(entry->size), client_data)) {
        qx::RecordError(kCallbackFailed, "UTL_HASH_DO_ALL");
        return;
      }
      entry = next;
    }
  }
}

int UTL_HASH_DELETE_BUCKET(UTL_HASH_PRIMARY *slot, UTL_HASH_BUCKET *entry) {
  if (slot == nullptr || entry == nullptr) return 0;
  return RemoveEntry(slot, entry);
}

void UTL_HASH_DESTROY_CHAIN(UTL_HASH_PRIMARY *slot) {
  if (slot == nullptr) return;
  while (slot->head != nullptr && !UTL_ERROR_IS_SET())
    RemoveEntry(slot, slot->head);
}

void UTL_HASH_DESTROY(UTL_HASH_TABLE *table) {
  if (table == nullptr) return;
  for (unsigned int i = 0; i < table->bucket_count && !UTL_ERROR_IS_SET(); ++i)
    UTL_HASH_DESTROY_CHAIN(&table->buckets[i]);
  if (UTL_ERROR_IS_SET()) return;
  if (!FreeEmptyTable(table)) UTL_ERROR_ADD_TRACE("UTL_HASH_DESTROY");
}

UTL_HASH_TABLE *UTL_HASH_REORGANIZE(UTL_HASH_TABLE *table, unsigned int bucket_count,
                                    UTL_HASH_FUNCTION hash, UTL_HASH_COPY_FUNCTION copy,
                                    UTL_HASH_LENGTH_FUNCTION length,
                                    UTL_HASH_COMPARE_FUNCTION compare) {
  if (table == nullptr || table->buckets == nullptr || UTL_ERROR_IS_SET()) return nullptr;
  UTL_HASH_TABLE *fresh = NewTable(bucket_count, hash, copy, length, compare);
  if (fresh == nullptr) {
    if (UTL_ERROR_IS_SET()) UTL_ERROR_ADD_TRACE("UTL_HASH_REORGANIZE");
    return nullptr;
  }
  if (!AllBucketsInRange(table, fresh)) {
    FreeEmptyTable(fresh);
    return qx::Fail(kBadBucket, "UTL_HASH_REORGANIZE", static_cast<UTL_HASH_TABLE *>(nullptr));
  }
  MoveEntries(table, fresh);
  if (!FreeEmptyTable(table)) UTL_ERROR_ADD_TRACE("UTL_HASH_REORGANIZE");
  return fresh;
}

}  // extern "C"
