// Disk heap of the keyed store.
//
// Sizes are rounded up to the granularity g. A rounded size s with
// 0 < s <= the small-allocation limit has a size class s / g whose free list
// head lives at free_heads + 4 (class - 1); such lists are popped and pushed
// at the front only, so every block on them has exactly the class size. Any
// other block goes on the one large list (head in the header), searched first
// fit: a block whose surplus after s leaves room for a record and g bytes is
// split, its tail becoming a free block in its place on the list; otherwise it
// is handed out whole. When nothing fits, the file grows by at least the
// minimum extension and the new tail goes on the front of the large list.
// Neighbouring free blocks are never merged and the file never shrinks: the
// store trades space for simple, append-only bookkeeping.
//
// Records are read and written as 12 bytes (their eleven plus the first
// payload byte); a record made from scratch carries zeros after its two words.
// Hostile files: a list walk stops at the first block it revisits, and after
// as many steps as the heap could hold blocks, and a free block must fit inside the heap and, on a
// small list, have its class size; anything else is reported as an unreadable record.
#include "files/db_heap.h"

#include <algorithm>

#include "common/error_record.h"
#include "files/db_cache.h"

namespace qx::db {

namespace {

enum class Fit { kFound, kNone, kError };

uint64_t ClassHead(const Header &h, uint64_t size) {
  return uint64_t{h.free_heads} + 4 * (size / h.granularity - 1);
}

// A free block must lie inside the heap, record and payload.
bool FitsHeap(UtlDb *db, uint64_t block, const BlockRecord &record) {
  return block + kRecordSize + record.size() <= HeapEnd(db->cache);
}

Fit FromSmallList(UtlDb *db, uint32_t s, uint32_t *payload) {
  const uint64_t head_addr = ClassHead(db->header, s);
  uint32_t head = 0;
  if (!ReadWord(db, head_addr, &head)) {
    PrintErrorLine("DiskAlloc: Failed to read free space list pointer %d\n",
                   static_cast<int>(head_addr));
    return Fit::kError;
  }
  if (head == 0) return Fit::kNone;
  BlockRecord record;
  if (!ReadRecord(db, head, &record) || record.size() != s || record.next() == head ||
      !FitsHeap(db, head, record)) {
    PrintErrorLine("DiskAlloc: Failed to read free space list header at %d\n",
                   static_cast<int>(head));
    return Fit::kError;
  }
  if (!WriteWord(db, head_addr, record.next()) || !WriteRecord(db, head, record)) {
    PrintErrorLine("DiskAlloc: Failed to write to heap at %d\n", static_cast<int>(head));
    return Fit::kError;
  }
  *payload = head + kRecordSize;
  return Fit::kFound;
}

// Takes `block` (whose record is `record`) off the large list, splitting it
// when the surplus is worth a block of its own.
Fit TakeLargeBlock(UtlDb *db, uint32_t prev, uint32_t block, BlockRecord record, uint32_t s) {
  uint32_t replacement = record.next();
  BlockRecord tail;
  const uint64_t tail_addr = uint64_t{block} + kRecordSize + s;
  const bool split = uint64_t{record.size()} >= uint64_t{s} + kRecordSize + db->header.granularity;
  if (split) {
    tail.set_size(record.size() - s - kRecordSize);
    tail.set_next(record.next());
    replacement = static_cast<uint32_t>(tail_addr);
    record.set_size(s);
  }
  if (prev == 0) {
    db->header.large_head = replacement;
  } else {
    BlockRecord before;
    if (!ReadRecord(db, prev, &before)) {
      PrintErrorLine("AttemptAllocation: Failed to read heap at prev_daddr %d\n",
                     static_cast<int>(prev));
      return Fit::kError;
    }
    before.set_next(replacement);
    if (!WriteRecord(db, prev, before)) return Fit::kError;
  }
  if ((split && !WriteRecord(db, tail_addr, tail)) || !WriteRecord(db, block, record)) {
    PrintErrorLine("DiskAlloc: Failed to write to heap at %d\n", static_cast<int>(block));
    return Fit::kError;
  }
  return Fit::kFound;
}

Fit FromLargeList(UtlDb *db, uint32_t s, uint32_t *payload) {
  const uint64_t max_steps = HeapEnd(db->cache) / kRecordIoSize + 1;
  uint32_t prev = 0;
  uint32_t block = db->header.large_head;
  LoopGuard loop;
  for (uint64_t steps = 0; block != 0; ++steps) {
    BlockRecord record;
    if (steps >= max_steps || loop.Revisits(block) || !ReadRecord(db, block, &record) ||
        !FitsHeap(db, block, record)) {
      PrintErrorLine("AttemptAllocation: Failed to read heap at daddr %d\n",
                     static_cast<int>(block));
      return Fit::kError;
    }
    if (record.size() >= s) {
      const Fit fit = TakeLargeBlock(db, prev, block, record, s);
      if (fit == Fit::kFound) *payload = block + kRecordSize;
      return fit;
    }
    prev = block;
    block = record.next();
  }
  return Fit::kNone;
}

Fit Attempt(UtlDb *db, uint32_t s, uint32_t *payload) {
  const Header &h = db->header;
  if (s <= h.small_limit && s / h.granularity > 0) {
    const Fit fit = FromSmallList(db, s, payload);
    if (fit != Fit::kNone) return fit;
  }
  return FromLargeList(db, s, payload);
}

// Grows the file by max(s + 12, minimum extension) and pushes the new tail
// on the front of the large list.
bool GrowHeap(UtlDb *db, uint32_t s) {
  const uint64_t extension =
      std::max<uint64_t>(uint64_t{s} + kRecordIoSize, db->header.min_extension);
  const uint64_t old_end = HeapEnd(db->cache);
  if (old_end + extension > kMaxFileSize ||
      !ExtendHeap(db->cache, static_cast<uint32_t>(extension))) {
    PrintErrorLine("DiskAlloc: Failed to extend heap by %d\n", static_cast<int>(extension));
    return false;
  }
  BlockRecord record;
  record.set_size(static_cast<uint32_t>(extension - kRecordSize));
  record.set_next(db->header.large_head);
  if (!WriteRecord(db, old_end, record)) {
    PrintErrorLine("DiskAlloc: Failed to write to heap at %d\n", static_cast<int>(old_end));
    return false;
  }
  db->header.large_head = static_cast<uint32_t>(old_end);
  return true;
}

}  // namespace

bool ReadRecord(UtlDb *db, uint64_t block, BlockRecord *record) {
  return HeapRead(db->cache, block, record->bytes, kRecordIoSize);
}

bool WriteRecord(UtlDb *db, uint64_t block, const BlockRecord &record) {
  return HeapWrite(db->cache, block, record.bytes, kRecordIoSize);
}

bool ReadWord(UtlDb *db, uint64_t addr, uint32_t *value) {
  unsigned char bytes[4];
  if (!HeapRead(db->cache, addr, bytes, 4)) return false;
  *value = GetU32(bytes);
  return true;
}

bool WriteWord(UtlDb *db, uint64_t addr, uint32_t value) {
  unsigned char bytes[4];
  PutU32(bytes, value);
  return HeapWrite(db->cache, addr, bytes, 4);
}

uint32_t DiskAlloc(UtlDb *db, uint32_t size) {
  const uint64_t g = db->header.granularity;
  const uint64_t rounded = (uint64_t{size} + g - 1) / g * g;
  if (rounded > kMaxFileSize) {
    PrintErrorLine("DiskAlloc: Failed to extend heap by %d\n", static_cast<int>(kMaxFileSize));
    return 0;
  }
  const auto s = static_cast<uint32_t>(rounded);
  uint32_t payload = 0;
  for (int attempt = 0; attempt < 2; ++attempt) {
    const Fit fit = Attempt(db, s, &payload);
    if (fit == Fit::kFound) return payload;
    if (fit == Fit::kError || attempt == 1 || !GrowHeap(db, s)) return 0;
  }
  return 0;
}

bool DiskFree(UtlDb *db, uint32_t payload) {
  Header &h = db->header;
  const uint64_t block = uint64_t{payload} - kRecordSize;
  BlockRecord record;
  if (payload < kRecordSize || !ReadRecord(db, block, &record)) {
    PrintErrorLine("DiskFree: Failed to read address %d\n", static_cast<int>(block));
    return false;
  }
  const uint32_t size = record.size();
  if (size <= h.small_limit && size != 0 && size % h.granularity == 0) {
    const uint64_t head_addr = ClassHead(h, size);
    uint32_t head = 0;
    if (!ReadWord(db, head_addr, &head)) {
      PrintErrorLine("DiskFree: Failed to read small address %d\n", static_cast<int>(head_addr));
      return false;
    }
    record.set_next(head);
    return WriteRecord(db, block, record) && WriteWord(db, head_addr, static_cast<uint32_t>(block));
  }
  record.set_next(h.large_head);
  if (!WriteRecord(db, block, record)) return false;
  h.large_head = static_cast<uint32_t>(block);
  return true;
}

uint32_t DiskAllocSize(UtlDb *db, uint32_t payload) {
  const uint64_t block = uint64_t{payload} - kRecordSize;
  BlockRecord record;
  if (payload < kRecordSize || !ReadRecord(db, block, &record)) {
    PrintErrorLine("DiskAllocSize: Failed read address %d\n", static_cast<int>(block));
    return 0;
  }
  return record.size();
}

}  // namespace qx::db
