// The keyed store's on-disk format and the in-memory handle.
//
// A store is one file holding a disk heap. Every integer in it is a 32-bit
// little-endian word, whatever the host, and an address is a byte offset from
// the start of the file. The file opens with a 156-byte header; directly after
// it stand the heads of the small free lists, one word per size class plus one
// spare word that no list uses. Every other byte belongs to a block: an 11-byte
// record {payload capacity, next free block, three zero bytes} followed by the
// payload. The heap always moves records as 12 bytes, so a record write also
// rewrites the first payload byte; callers fill a payload only after its
// record has been written. The handle is the decoded header plus the cache
// that every file access goes through; the header reaches the file only at
// flush and close, with its last word (the cache pointer in memory) written 0.
#ifndef QXBASE_FILES_DB_FORMAT_H
#define QXBASE_FILES_DB_FORMAT_H

#include <cstdint>

namespace qx::db {

inline constexpr const char *kTag = "utl_db";

inline constexpr uint32_t kHeaderSize = 156;
inline constexpr uint32_t kRecordSize = 11;     // a block record as it is laid out
inline constexpr uint32_t kRecordIoSize = 12;   // a block record as it is read and written
inline constexpr uint32_t kEntrySize = 16;      // one key entry
inline constexpr uint32_t kSegmentHead = 8;     // {next, count} before the entries
inline constexpr uint32_t kNoKey = 0x80000000;  // ends key links, marks free entries
inline constexpr uint64_t kMaxFileSize = 0x7FFFFFFF;
inline constexpr uint32_t kMaxChunkSize = 1u << 26;

inline constexpr char kClosedMark[4] = {'Z', 'E', 'L', 'K'};
inline constexpr char kLockMark[4] = {'Z', 'E', 'L', 'Q'};

inline uint32_t GetU32(const unsigned char *p) {
  return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

inline void PutU32(unsigned char *p, uint32_t v) {
  p[0] = static_cast<unsigned char>(v);
  p[1] = static_cast<unsigned char>(v >> 8);
  p[2] = static_cast<unsigned char>(v >> 16);
  p[3] = static_cast<unsigned char>(v >> 24);
}

// The header fields in file order (the byte offset is in each comment).
struct Header {
  char magic[4];           // 0
  uint32_t reserved[2];    // 4, 8: kept as read
  char title[80];          // 12: not always terminated
  uint32_t granularity;    // 92
  uint32_t small_limit;    // 96
  uint32_t hash_selector;  // 100
  uint32_t free_heads;     // 104: address of the small free-list heads
  uint32_t large_head;     // 108
  uint32_t chunk_size;     // 112
  uint32_t min_extension;  // 116
  uint32_t first_segment;  // 120
  uint32_t hash_table;     // 124
  uint32_t last_segment;   // 128
  int32_t total_keys;      // 132
  int32_t free_keys;       // 136
  int32_t key_increment;   // 140
  uint32_t buckets;        // 144
  int32_t first_free;      // 148
};                         // 152: the cache pointer in memory, 0 in the file

void EncodeHeader(const Header &header, unsigned char out[kHeaderSize]);
void DecodeHeader(const unsigned char in[kHeaderSize], Header *header);

// A block record as the heap moves it: twelve bytes, the last of which is the
// first payload byte.
struct BlockRecord {
  unsigned char bytes[kRecordIoSize] = {};
  uint32_t size() const { return GetU32(bytes); }
  uint32_t next() const { return GetU32(bytes + 4); }
  void set_size(uint32_t v) { PutU32(bytes, v); }
  void set_next(uint32_t v) { PutU32(bytes + 4, v); }
};

// One key entry: own number (or next free key | kNoKey), name record, next
// key of the bucket chain, data record.
struct KeyEntry {
  uint32_t word[4];
};

// Brent's cycle detection for walks along links read from the file: true once
// the walk comes back to a link it has passed, found within about twice the
// length of the walk up to the end of the cycle. Valid files never loop.
class LoopGuard {
 public:
  bool Revisits(uint64_t link) {
    if (link == saved_) return true;
    if (++steps_ == span_) {
      saved_ = link;
      steps_ = 0;
      span_ *= 2;
    }
    return false;
  }

 private:
  uint64_t saved_ = ~uint64_t{0};
  uint64_t steps_ = 0;
  uint64_t span_ = 1;
};

struct Cache;

// Segments already walked, so that locating a key costs a binary search
// instead of a walk of the whole chain. Only a memory of what the file says.
struct SegmentIndex {
  struct Segment {
    uint32_t payload;
    uint32_t count;
    int64_t first_key;
  };
  Segment *items = nullptr;
  uint32_t size = 0;
  uint32_t capacity = 0;
  int64_t covered = 0;        // keys held by the indexed segments
  uint32_t next_payload = 0;  // next field of the last indexed segment
  LoopGuard loop;
};

}  // namespace qx::db

// The handle behind the public opaque pointer.
struct UtlDb {
  qx::db::Header header;
  qx::db::Cache *cache;
  qx::db::SegmentIndex segments;
};

#endif  // QXBASE_FILES_DB_FORMAT_H
