// Primary keys and names of the keyed store.
//
// Keys live in a chain of segments {next, count, count entries of 16 bytes};
// key numbers run on through the chain, so a key's entry is found by summing
// segment counts. The segments already walked are remembered in memory (the
// index is only a memory of the file, rebuilt from it on every open), which
// turns the walk into a binary search. Free keys form a list threaded through
// word 0 of their entries (next free key | 0x80000000), popped and pushed at
// the front. A named key's entry points at a name record {length byte, the
// characters}; the bucket of the name (one of three hashes chosen by the
// header) heads a chain linked through word 2, newest first, so equal names
// are found newest first. Walks over hostile files stop at the first link
// they revisit, and in any case after as many steps as the file could hold
// segments or entries; a segment without keys ends the chain.
#include "files/db_keys.h"

#include <algorithm>
#include <cstring>

#include "common/error_record.h"
#include "files/db_cache.h"
#include "files/db_heap.h"
#include "utl_mem.h"

namespace qx::db {

namespace {

// A segment holds at least one key: files never hold empty segments.
constexpr uint32_t kMinSegmentBlock = kRecordSize + kSegmentHead + kEntrySize;
constexpr uint32_t kEntryBatch = 64;

void DecodeEntry(const unsigned char *bytes, KeyEntry *entry) {
  for (int i = 0; i < 4; ++i)
    entry->word[i] = GetU32(bytes + 4 * i);
}

void EncodeEntry(const KeyEntry &entry, unsigned char *bytes) {
  for (int i = 0; i < 4; ++i)
    PutU32(bytes + 4 * i, entry.word[i]);
}

bool ReadSegmentHead(UtlDb *db, uint32_t payload, uint32_t *next, uint32_t *count) {
  unsigned char head[kSegmentHead];
  if (payload == 0 || !HeapRead(db->cache, payload, head, kSegmentHead)) return false;
  *next = GetU32(head);
  *count = GetU32(head + 4);
  return *count != 0;
}

uint64_t MaxSegments(UtlDb *db) {
  return HeapEnd(db->cache) / kMinSegmentBlock + 1;
}

// Plain walk of the segment chain, for when the index cannot grow.
bool WalkToEntry(UtlDb *db, int key, uint64_t *addr) {
  uint32_t payload = db->header.first_segment;
  int64_t before = 0;
  LoopGuard loop;
  const uint64_t max_steps = MaxSegments(db);
  for (uint64_t steps = 0; steps < max_steps; ++steps) {
    uint32_t next = 0;
    uint32_t count = 0;
    if (loop.Revisits(payload) || !ReadSegmentHead(db, payload, &next, &count)) return false;
    if (before + count > key) {
      *addr = uint64_t{payload} + kSegmentHead + kEntrySize * uint64_t(key - before);
      return true;
    }
    before += count;
    payload = next;
  }
  return false;
}

enum class Grow { kOk, kEnd, kNoMemory };

Grow IndexNextSegment(UtlDb *db) {
  SegmentIndex &ix = db->segments;
  const uint32_t payload = ix.size == 0 ? db->header.first_segment : ix.next_payload;
  uint32_t next = 0;
  uint32_t count = 0;
  if (ix.size >= MaxSegments(db) || !ReadSegmentHead(db, payload, &next, &count)) return Grow::kEnd;
  if (ix.size == ix.capacity) {
    const uint64_t capacity = std::max<uint64_t>(16, uint64_t{ix.capacity} * 2);
    const uint64_t bytes = capacity * sizeof(SegmentIndex::Segment);
    if (bytes > 0xFFFFFFFFu) return Grow::kNoMemory;
    ErrorBarrier barrier;  // the index is an accelerator: running short is no error
    void *items = UTL_DMEM_REALLOC(ix.items, static_cast<unsigned int>(bytes), kTag, __LINE__);
    if (items == nullptr) return Grow::kNoMemory;
    ix.items = static_cast<SegmentIndex::Segment *>(items);
    ix.capacity = static_cast<uint32_t>(capacity);
  }
  // Checked only once the segment is sure to be indexed, so that a retry after
  // running short of memory does not look like a loop.
  if (ix.loop.Revisits(payload)) return Grow::kEnd;
  ix.items[ix.size++] = {payload, count, ix.covered};
  ix.covered += count;
  ix.next_payload = next;
  return Grow::kOk;
}

bool EntryAddress(UtlDb *db, int key, uint64_t *addr) {
  SegmentIndex &ix = db->segments;
  while (ix.covered <= key) {
    const Grow grow = IndexNextSegment(db);
    if (grow == Grow::kNoMemory) return WalkToEntry(db, key, addr);
    if (grow == Grow::kEnd) return false;
  }
  const SegmentIndex::Segment *segment =
      std::upper_bound(ix.items, ix.items + ix.size, int64_t{key},
                       [](int64_t k, const SegmentIndex::Segment &s) { return k < s.first_key; }) -
      1;
  *addr = uint64_t{segment->payload} + kSegmentHead +
          kEntrySize * static_cast<uint64_t>(key - segment->first_key);
  return true;
}

// Writes `count` free entries numbered on from `first` at addr.
bool WriteFreeEntries(UtlDb *db, uint64_t addr, int64_t first, uint32_t count) {
  unsigned char batch[kEntryBatch * kEntrySize];
  for (uint32_t done = 0; done < count;) {
    const uint32_t n = std::min(kEntryBatch, count - done);
    for (uint32_t i = 0; i < n; ++i) {
      const auto number = static_cast<uint32_t>(first + done + i + 1);
      EncodeEntry(KeyEntry{{number | kNoKey, 0, kNoKey, 0}}, batch + kEntrySize * i);
    }
    if (!HeapWrite(db->cache, addr + uint64_t{kEntrySize} * done, batch, n * kEntrySize))
      return false;
    done += n;
  }
  return true;
}

// Appends a segment of key_increment free keys to the chain.
bool ExtendKeyList(UtlDb *db) {
  Header &h = db->header;
  const int64_t increment = h.key_increment;
  const uint64_t bytes = kSegmentHead + kEntrySize * static_cast<uint64_t>(increment);
  if (increment <= 0 || bytes > kMaxFileSize || h.total_keys < 0 ||
      int64_t{h.total_keys} + increment > 0x7FFFFFFF)
    return false;
  const uint32_t payload = DiskAlloc(db, static_cast<uint32_t>(bytes));
  if (payload == 0) return false;
  unsigned char head[kSegmentHead];
  PutU32(head, 0);
  PutU32(head + 4, static_cast<uint32_t>(increment));
  if (!HeapWrite(db->cache, payload, head, kSegmentHead) ||
      !WriteFreeEntries(db, uint64_t{payload} + kSegmentHead, h.total_keys,
                        static_cast<uint32_t>(increment)) ||
      !WriteWord(db, h.last_segment, payload))
    return false;
  SegmentIndex &ix = db->segments;
  if (ix.size > 0 && ix.items[ix.size - 1].payload == h.last_segment) ix.next_payload = payload;
  h.last_segment = payload;
  h.total_keys += static_cast<int32_t>(increment);
  h.free_keys += static_cast<int32_t>(increment);
  return true;
}

// The address of the bucket word of a name.
uint64_t BucketAddress(const Header &h, const unsigned char *name, uint32_t length) {
  return uint64_t{h.hash_table} + 4 * uint64_t{NameHash(h.hash_selector, name, length, h.buckets)};
}

// Allocates the name record of `name` and puts key first in its bucket.
bool AddName(UtlDb *db, int key, const char *name, KeyEntry *entry) {
  const std::size_t length = std::strlen(name);
  if (length + 1 > kMaxFileSize) return false;
  const uint32_t payload = DiskAlloc(db, static_cast<uint32_t>(length + 1));
  if (payload == 0) return false;
  const auto length_byte = static_cast<unsigned char>(length);
  if (!HeapWrite(db->cache, payload, &length_byte, 1) ||
      !HeapWrite(db->cache, uint64_t{payload} + 1, name, static_cast<uint32_t>(length)))
    return false;
  entry->word[1] = payload;
  const uint64_t bucket = BucketAddress(db->header, reinterpret_cast<const unsigned char *>(name),
                                        static_cast<uint32_t>(length));
  uint32_t first = 0;
  if (!ReadWord(db, bucket, &first)) {
    PrintErrorLine(
        "AddSecondaryKey: Failed to Read head of secondary key list at address %d (key %d)\n",
        static_cast<int>(bucket), key);
    return false;
  }
  if (first != kNoKey) entry->word[2] = first;
  return WriteWord(db, bucket, static_cast<uint32_t>(key));
}

// Steps a bucket chain may take before it is taken for a loop.
uint64_t MaxChainSteps(UtlDb *db) {
  return std::min<uint64_t>(static_cast<uint64_t>(std::max(db->header.total_keys, 0)),
                            HeapEnd(db->cache) / kEntrySize) +
         1;
}

enum class Match { kYes, kNo, kError };

// Compares the name record at `record` with name (length byte, then the
// characters in pieces).
Match NameMatches(UtlDb *db, uint32_t record, const char *name, uint32_t length) {
  if (record == 0) return Match::kNo;
  unsigned char piece[256];
  bool ok = HeapRead(db->cache, record, piece, 1);
  if (ok && piece[0] != static_cast<unsigned char>(length)) return Match::kNo;
  for (uint32_t done = 0; ok && done < length;) {
    const uint32_t n = std::min<uint32_t>(sizeof piece, length - done);
    ok = HeapRead(db->cache, uint64_t{record} + 1 + done, piece, n);
    if (ok && std::memcmp(piece, name + done, n) != 0) return Match::kNo;
    done += n;
  }
  if (ok) return Match::kYes;
  PrintErrorLine("SecondaryEqual: Failed to read address %d for key %s\n", static_cast<int>(record),
                 name);
  return Match::kError;
}

// The bucket of the name stored in the record at `record`.
bool StoredNameBucket(UtlDb *db, uint32_t record, uint64_t *bucket) {
  unsigned char name[256];
  if (!HeapRead(db->cache, record, name, 1) || name[0] == 0 ||
      !HeapRead(db->cache, uint64_t{record} + 1, name + 1, name[0]))
    return false;
  *bucket = BucketAddress(db->header, name + 1, name[0]);
  return true;
}

// Makes the link that leads to key in the chain of `bucket` lead to `next`.
bool Relink(UtlDb *db, uint64_t bucket, int key, uint32_t next) {
  uint32_t k = 0;
  if (!ReadWord(db, bucket, &k)) return false;
  if (k == static_cast<uint32_t>(key)) return WriteWord(db, bucket, next);
  LoopGuard loop;
  const uint64_t max_steps = MaxChainSteps(db);
  for (uint64_t steps = 0; !(k & kNoKey) && steps < max_steps; ++steps) {
    KeyEntry link;
    uint64_t addr = 0;
    if (loop.Revisits(k) || !KeyInRange(db, static_cast<int>(k)) ||
        !ReadEntry(db, static_cast<int>(k), &link, &addr))
      return false;
    if (link.word[2] == static_cast<uint32_t>(key)) {
      link.word[2] = next;
      return WriteEntry(db, addr, link);
    }
    k = link.word[2];
  }
  return false;
}

// Removes key from the chain of its name's bucket.
bool UnlinkName(UtlDb *db, int key, const KeyEntry &entry) {
  uint64_t bucket = 0;
  if (StoredNameBucket(db, entry.word[1], &bucket) && Relink(db, bucket, key, entry.word[2]))
    return true;
  PrintErrorLine("FreeKey: Attempt to free non-existent key %d\n", key);
  return false;
}

}  // namespace

bool KeyInRange(const UtlDb *db, int key) {
  return key >= 0 && key < db->header.total_keys;
}

bool ReadEntry(UtlDb *db, int key, KeyEntry *entry, uint64_t *addr) {
  unsigned char bytes[kEntrySize];
  if (!EntryAddress(db, key, addr) || !HeapRead(db->cache, *addr, bytes, kEntrySize)) return false;
  DecodeEntry(bytes, entry);
  return true;
}

bool WriteEntry(UtlDb *db, uint64_t addr, const KeyEntry &entry) {
  unsigned char bytes[kEntrySize];
  EncodeEntry(entry, bytes);
  return HeapWrite(db->cache, addr, bytes, kEntrySize);
}

uint32_t NameHash(uint32_t selector, const unsigned char *s, uint32_t length, uint32_t buckets) {
  uint32_t h = 0;
  if (selector == 2) {
    h = s[length - 1] * s[length / 2] * s[0];
  } else if (selector == 3) {
    uint32_t folded = 0;
    for (uint32_t i = 1; i < length; ++i)
      folded ^= s[i];
    h = length <= 1 ? 0 : s[0] * folded;
  } else {
    const uint32_t half = length / 2;
    h = s[half] * s[half > 0 ? 1 : 0] * s[half + 1 < length ? half + 1 : length - 1];
  }
  return h % buckets;
}

int AllocateKey(UtlDb *db, const char *name) {
  Header &h = db->header;
  if (h.free_keys <= 0 && !ExtendKeyList(db)) {
    PrintErrorLine("ExtendPrimaryKeyList: Failed to extend Primary Key List\n");
    PrintErrorLine("AllocateKey: Failed to Extend FreeKeyList.\n");
    return -1;
  }
  const int key = h.first_free;
  KeyEntry entry;
  uint64_t addr = 0;
  // A head that names a key in use would hand that key out twice.
  if (!KeyInRange(db, key) || !ReadEntry(db, key, &entry, &addr) || !(entry.word[0] & kNoKey)) {
    PrintErrorLine("AllocateKey: Failed to Allocate from FreeKeyList.\n");
    return -1;
  }
  h.first_free = static_cast<int32_t>(entry.word[0] & ~kNoKey);
  --h.free_keys;
  entry.word[0] = static_cast<uint32_t>(key);
  entry.word[2] = kNoKey;
  if (name != nullptr && name[0] != '\0' && !AddName(db, key, name, &entry)) return -1;
  return WriteEntry(db, addr, entry) ? key : -1;
}

int FindNamedKey(UtlDb *db, const char *name, int after) {
  if (name == nullptr || name[0] == '\0') return -1;
  const std::size_t length = std::strlen(name);
  if (length > kMaxFileSize) return -1;
  const uint64_t bucket = BucketAddress(db->header, reinterpret_cast<const unsigned char *>(name),
                                        static_cast<uint32_t>(length));
  uint32_t k = 0;
  if (!ReadWord(db, bucket, &k)) {
    PrintErrorLine("FindSecondaryKey:Failed to Read key at address %d\n", static_cast<int>(bucket));
    return -1;
  }
  bool started = after < 0;
  LoopGuard loop;
  const uint64_t max_steps = MaxChainSteps(db);
  for (uint64_t steps = 0; !(k & kNoKey) && steps < max_steps; ++steps) {
    if (loop.Revisits(k)) return -1;
    KeyEntry entry;
    uint64_t addr = 0;
    if (!KeyInRange(db, static_cast<int>(k)) || !ReadEntry(db, static_cast<int>(k), &entry, &addr))
      return -1;
    if (started) {
      const Match match = NameMatches(db, entry.word[1], name, static_cast<uint32_t>(length));
      if (match == Match::kError) return -1;
      if (match == Match::kYes)
        return (entry.word[0] & kNoKey) ? -1 : static_cast<int>(entry.word[0]);
    } else if (k == static_cast<uint32_t>(after)) {
      started = true;
    }
    k = entry.word[2];
  }
  return -1;
}

bool FreeKey(UtlDb *db, int key) {
  Header &h = db->header;
  KeyEntry entry;
  uint64_t addr = 0;
  // Freeing a free key twice would tie the free list into a loop.
  if (!ReadEntry(db, key, &entry, &addr) || (entry.word[0] & kNoKey)) return false;
  if (entry.word[1] != 0 && !UnlinkName(db, key, entry)) return false;
  const uint32_t name = entry.word[1];
  const uint32_t data = entry.word[3];
  entry = KeyEntry{{static_cast<uint32_t>(h.first_free) | kNoKey, 0, kNoKey, 0}};
  h.first_free = key;
  ++h.free_keys;
  bool ok = name == 0 || DiskFree(db, name);
  ok = (data == 0 || DiskFree(db, data)) && ok;
  return WriteEntry(db, addr, entry) && ok;
}

void ForgetSegments(UtlDb *db) {
  UTL_DMEM_FREE(db->segments.items, kTag, __LINE__);
  db->segments = SegmentIndex{};
}

}  // namespace qx::db
