// utl_db: the keyed store's exported functions.
//
// Creation writes a new file directly, in this order: the 156-byte header
// (address fields still 0), (limit / g) + 1 zero words of free-list heads, the
// first key segment's block (record {16n + 8, 0}, then {next 0, count n} and n
// free entries chained 0 -> 1 -> 2 ...), the hash table's block (record
// {4m, 0}, then m empty buckets), and the header again with the addresses.
// Everything after creation goes through the handle: the decoded header,
// whose fields change in memory and reach the file at flush or close, and the
// chunk cache. The lock mark is the header's magic "ZELQ"; a handle opened
// read-only keeps "ZELK" and never writes back. UTL_DB_READ delivers a block's
// capacity rather than the length last written: the file records no exact
// length, and callers rely on this.
#include "utl_db.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "common/error_record.h"
#include "files/db_cache.h"
#include "files/db_format.h"
#include "files/db_heap.h"
#include "files/db_keys.h"
#include "utl_mem.h"

namespace {

using namespace qx::db;
using qx::PrintErrorLine;

constexpr const char *kDefaultTitle = "Gorps the Grumbler";
constexpr uint32_t kIoBuffer = 4096;

// Writes `count` words produced by word(i), a buffer at a time.
template <typename WordOf>
bool WriteWords(int fd, uint64_t count, WordOf word) {
  unsigned char buffer[kIoBuffer];
  for (uint64_t done = 0; done < count;) {
    const uint64_t n = std::min<uint64_t>(kIoBuffer / 4, count - done);
    for (uint64_t i = 0; i < n; ++i)
      PutU32(buffer + 4 * i, word(done + i));
    if (!WriteFully(fd, buffer, static_cast<uint32_t>(4 * n))) return false;
    done += n;
  }
  return true;
}

bool WriteRecordAt(int fd, uint32_t size) {
  unsigned char record[kRecordSize] = {};
  PutU32(record, size);
  return WriteFully(fd, record, kRecordSize);
}

bool WriteImageAt0(int fd, const unsigned char image[kHeaderSize]) {
  return lseek(fd, 0, SEEK_SET) == 0 && WriteFully(fd, image, kHeaderSize);
}

bool WriteHeaderAt0(int fd, const Header &header) {
  unsigned char image[kHeaderSize];
  EncodeHeader(header, image);
  return WriteImageAt0(fd, image);
}

struct Layout {
  Header header;
  uint64_t head_words;
};

// Applies the defaults and refusals of creation; false when refused.
bool PlanLayout(int keys, int increment, int buckets, int selector, int granularity, int limit,
                int chunk_size, int min_extension, const char *title, Layout *out) {
  const int numbers[] = {keys, increment, buckets, granularity, limit, chunk_size, min_extension};
  for (int v : numbers)
    if (v < 0) return false;
  if (limit != 0 && granularity > limit) return false;
  if (static_cast<unsigned>(selector) > 3) return false;
  Header &h = out->header;
  h = Header{};
  std::memcpy(h.magic, kClosedMark, 4);
  const char *text = title != nullptr ? title : kDefaultTitle;
  std::memcpy(h.title, text, std::min<std::size_t>(std::strlen(text) + 1, sizeof h.title));
  const uint64_t g = granularity != 0 ? granularity : 8;
  const uint64_t rounded_limit = ((limit != 0 ? limit : 1024) + g - 1) / g * g;
  const uint64_t n = keys != 0 ? keys : 512;
  const uint64_t m = buckets != 0 ? buckets : 512;
  out->head_words = rounded_limit / g + 1;
  const uint64_t file_size = kHeaderSize + 4 * out->head_words + kRecordSize + kSegmentHead +
                             kEntrySize * n + kRecordSize + 4 * m;
  h.chunk_size = chunk_size != 0 ? chunk_size : 8192;
  if (file_size > kMaxFileSize || h.chunk_size > kMaxChunkSize) return false;
  h.granularity = static_cast<uint32_t>(g);
  h.small_limit = static_cast<uint32_t>(rounded_limit);
  h.hash_selector = selector != 0 ? selector : 1;
  h.free_heads = kHeaderSize;
  h.min_extension = min_extension != 0 ? min_extension : 4096;
  h.total_keys = h.free_keys = static_cast<int32_t>(n);
  h.key_increment = increment != 0 ? increment : 512;
  h.buckets = static_cast<uint32_t>(m);
  return true;
}

// Writes the whole new file described by layout; false on a short write.
bool WriteNewStore(int fd, Layout *layout) {
  Header &h = layout->header;
  const auto n = static_cast<uint32_t>(h.total_keys);
  const uint32_t segment_record = kHeaderSize + 4 * static_cast<uint32_t>(layout->head_words);
  const uint32_t segment_size = kSegmentHead + kEntrySize * n;
  h.first_segment = h.last_segment = segment_record + kRecordSize;
  h.hash_table = h.first_segment + segment_size + kRecordSize;
  unsigned char image[kHeaderSize];
  Header blank = h;
  blank.first_segment = blank.last_segment = blank.hash_table = 0;
  EncodeHeader(blank, image);
  unsigned char segment_head[kSegmentHead];
  PutU32(segment_head, 0);
  PutU32(segment_head + 4, n);
  return WriteFully(fd, image, kHeaderSize) &&
         WriteWords(fd, layout->head_words, [](uint64_t) { return 0u; }) &&
         WriteRecordAt(fd, segment_size) && WriteFully(fd, segment_head, kSegmentHead) &&
         WriteWords(fd, 4 * uint64_t{n},
                    [](uint64_t i) {
                      const uint64_t key = i / 4;
                      switch (i % 4) {
                        case 0:
                          return static_cast<uint32_t>(key + 1) | kNoKey;
                        case 2:
                          return kNoKey;
                        default:
                          return 0u;
                      }
                    }) &&
         WriteRecordAt(fd, 4 * h.buckets) &&
         WriteWords(fd, h.buckets, [](uint64_t) { return kNoKey; }) && WriteHeaderAt0(fd, h);
}

bool HasMark(const UtlDb *db, const char mark[4]) {
  return std::memcmp(db->header.magic, mark, 4) == 0;
}

// A header whose numbers would divide by zero or select no hash.
bool UsableHeader(const Header &h) {
  return h.granularity != 0 && h.buckets != 0 && h.hash_selector >= 1 && h.hash_selector <= 3;
}

// Opens the descriptor the mode letter asks for; sets *lock when the open
// must write the lock mark. -1 on failure.
int OpenForMode(const char *path, char letter, bool *lock) {
  *lock = true;
  switch (letter) {
    case 'C':
    case 'c':
    case 'W':
    case 'w':
      if (access(path, F_OK) == 0) {
        if (access(path, R_OK | W_OK) != 0) return -1;
      } else if (!UTL_DB_XCREATE(path, 0, 0, 0, 0, 0, 0, 0, 0, nullptr)) {
        return -1;
      }
      return open(path, O_RDWR);
    case 'U':
    case 'u':
      return open(path, O_RDWR);
    case 'R':
    case 'r':
      *lock = false;
      return open(path, O_RDONLY);
    default:
      // Deliberate: an unknown letter opens read-only but still writes the lock
      // mark, so the open fails; callers rely on that refusal.
      return open(path, O_RDONLY);
  }
}

// Reads and checks the header, builds the cache, and writes the lock mark.
// The cache is built before the mark so that a failed open leaves the file
// as it was.
bool LoadStore(UtlDb *db, int fd, bool lock, int chunk_size) {
  unsigned char image[kHeaderSize];
  struct stat info;
  if (!ReadFully(fd, image, kHeaderSize) || fstat(fd, &info) != 0) return false;
  DecodeHeader(image, &db->header);
  if (!HasMark(db, kClosedMark) || !UsableHeader(db->header)) return false;
  const uint32_t chunk =
      chunk_size != 0 ? static_cast<uint32_t>(chunk_size) : db->header.chunk_size;
  db->cache = CreateCache(fd, chunk, static_cast<uint64_t>(info.st_size));
  if (db->cache == nullptr) return false;
  if (lock) {
    std::memcpy(db->header.magic, kLockMark, 4);
    if (!WriteHeaderAt0(fd, db->header)) return false;
  }
  db->header.chunk_size = chunk;
  return true;
}

// Header through the cache, then every dirty chunk: the one core of
// UTL_DB_FLUSH and UTL_DB_CLOSE.
bool WriteBack(UtlDb *db) {
  unsigned char image[kHeaderSize];
  EncodeHeader(db->header, image);
  return HeapWrite(db->cache, 0, image, kHeaderSize) && FlushHeap(db->cache);
}

void FreeHandle(UtlDb *db) {
  if (db->cache != nullptr) {
    close(db->cache->fd);
    DestroyCache(db->cache);
  }
  ForgetSegments(db);
  UTL_DMEM_FREE(db, kTag, __LINE__);
}

// Reads the entry of a key; false for a null handle, a key out of range or an
// unreadable entry.
bool EntryOf(UtlDb *db, int key, KeyEntry *entry, uint64_t *addr) {
  return db != nullptr && KeyInRange(db, key) && ReadEntry(db, key, entry, addr);
}

bool InUse(const KeyEntry &entry) {
  return !(entry.word[0] & kNoKey);
}

// The two diagnostics of a name that cannot be delivered; both return 0.
int NameUnreadable(uint32_t record) {
  PrintErrorLine("ReadSecondaryKeyName: Failed to read address %d\n", static_cast<int>(record));
  return 0;
}

int NameBufferTooSmall(int name_size, int length) {
  PrintErrorLine("ReadSecondaryKeyName: User buffer (%d) too small for key (%d)\n", name_size,
                 length);
  return 0;
}

// Copies the name record at `record` into name (name_size bytes at most).
int CopyName(UtlDb *db, uint32_t record, int name_size, char *name) {
  unsigned char length = 0;
  if (!HeapRead(db->cache, record, &length, 1)) return NameUnreadable(record);
  if (name_size < length + 1) {
    if (name_size > 0) name[0] = '\0';
    return NameBufferTooSmall(name_size, length);
  }
  if (!HeapRead(db->cache, uint64_t{record} + 1, name, length)) {
    name[0] = '\0';
    return NameUnreadable(record);
  }
  name[length] = '\0';
  return 1;
}

}  // namespace

extern "C" {

int UTL_DB_CREATE(const char *path, int keys, int granularity, int small_limit) {
  return UTL_DB_XCREATE(path, keys, 0, 0, 0, granularity, small_limit, 0, 0, nullptr);
}

int UTL_DB_XCREATE(const char *path, int keys, int key_increment, int buckets, int hash_selector,
                   int granularity, int small_limit, int chunk_size, int min_extension,
                   const char *title) {
  Layout layout;
  if (path == nullptr || !PlanLayout(keys, key_increment, buckets, hash_selector, granularity,
                                     small_limit, chunk_size, min_extension, title, &layout))
    return 0;
  if (access(path, F_OK) == 0) return 0;
  const int fd = open(path, O_RDWR | O_CREAT | O_EXCL, 0664);
  if (fd < 0) return 0;
  const bool ok = WriteNewStore(fd, &layout);
  return close(fd) == 0 && ok;
}

UtlDb *UTL_DB_OPEN(const char *path, const char *mode, int chunk_size) {
  if (path == nullptr) return nullptr;
  bool lock = true;
  const int fd = OpenForMode(path, mode != nullptr ? mode[0] : '\0', &lock);
  if (fd < 0) return nullptr;
  auto *db = static_cast<UtlDb *>(UTL_DMEM_ALLOC(sizeof(UtlDb), kTag, __LINE__));
  if (db == nullptr) {
    close(fd);
    return nullptr;
  }
  db->cache = nullptr;
  db->segments = SegmentIndex{};
  if (!LoadStore(db, fd, lock, chunk_size)) {
    if (db->cache == nullptr) close(fd);
    FreeHandle(db);
    return nullptr;
  }
  return db;
}

int UTL_DB_CLOSE(UtlDb *db) {
  if (db == nullptr) return 0;
  bool ok = true;
  if (HasMark(db, kLockMark)) {
    std::memcpy(db->header.magic, kClosedMark, 4);
    ok = WriteBack(db);
  }
  FreeHandle(db);
  return ok;
}

int UTL_DB_FLUSH(UtlDb *db) {
  if (db == nullptr) return 0;
  if (!HasMark(db, kLockMark)) return 1;
  return WriteBack(db);
}

int UTL_DB_UNLOCK(const char *path) {
  if (path == nullptr) return 0;
  const int fd = open(path, O_RDWR);
  if (fd < 0) return 0;
  unsigned char image[kHeaderSize];
  bool ok = ReadFully(fd, image, kHeaderSize);
  if (ok && std::memcmp(image, kLockMark, 4) == 0) {
    std::memcpy(image, kClosedMark, 4);
    PutU32(image + kHeaderSize - 4, 0);
    ok = WriteImageAt0(fd, image);
  } else {
    ok = ok && std::memcmp(image, kClosedMark, 4) == 0;
  }
  return close(fd) == 0 && ok;
}

int UTL_DB_GENKEY(UtlDb *db, const char *name) {
  return db == nullptr ? -1 : AllocateKey(db, name);
}

int UTL_DB_DELETE(UtlDb *db, int key) {
  return db != nullptr && KeyInRange(db, key) && FreeKey(db, key);
}

int UTL_DB_WRITE(UtlDb *db, int key, int length, const void *data) {
  KeyEntry entry;
  uint64_t addr = 0;
  if (!EntryOf(db, key, &entry, &addr) || !InUse(entry)) {
    PrintErrorLine("UTL_DB_WRITE: Cannot find key %d\n", key);
    return 0;
  }
  if (length < 0 || (length > 0 && data == nullptr)) return 0;
  const auto size = static_cast<uint32_t>(length);
  const uint32_t old = entry.word[3];
  if ((old != 0 ? DiskAllocSize(db, old) : 0) >= size) {
    return size == 0 || HeapWrite(db->cache, old, data, size);
  }
  const uint32_t payload = DiskAlloc(db, size);
  if (payload == 0) return 0;
  if (old != 0 && !DiskFree(db, old)) return 0;
  entry.word[3] = payload;
  return HeapWrite(db->cache, payload, data, size) && WriteEntry(db, addr, entry);
}

int UTL_DB_READ(UtlDb *db, int key, int buffer_size, void *buffer, int *delivered) {
  KeyEntry entry;
  uint64_t addr = 0;
  if (!EntryOf(db, key, &entry, &addr)) return 0;
  if (delivered != nullptr) *delivered = 0;
  if (entry.word[3] == 0) return 1;
  const uint32_t capacity = DiskAllocSize(db, entry.word[3]);
  const int64_t n = std::min<int64_t>(buffer_size, capacity);
  if (n <= 0) return 1;
  if (buffer == nullptr) return 0;
  if (!HeapRead(db->cache, entry.word[3], buffer, static_cast<uint32_t>(n))) {
    PrintErrorLine("UTL_DB_READ: Failed to read %d bytes at %d\n", static_cast<int>(n),
                   static_cast<int>(entry.word[3]));
    return 0;
  }
  if (delivered != nullptr) *delivered = static_cast<int>(n);
  return 1;
}

int UTL_DB_FIND(UtlDb *db, int key, const char *name) {
  if (db == nullptr || key >= db->header.total_keys) return -1;
  if (key < 0) return FindNamedKey(db, name, -1);
  KeyEntry entry;
  uint64_t addr = 0;
  if (!ReadEntry(db, key, &entry, &addr) || !InUse(entry)) return -1;
  return static_cast<int>(entry.word[0]);
}

int UTL_DB_FIND_NEXT(UtlDb *db, int previous, const char *name) {
  if (db == nullptr || !KeyInRange(db, previous)) return -1;
  return FindNamedKey(db, name, previous);
}

int UTL_DB_INFO(UtlDb *db, int key, int name_size, char *name, int *data_size) {
  KeyEntry entry;
  uint64_t addr = 0;
  if (!EntryOf(db, key, &entry, &addr) || !InUse(entry)) return 0;
  const uint32_t capacity = entry.word[3] != 0 ? DiskAllocSize(db, entry.word[3]) : 0;
  if (data_size != nullptr) *data_size = static_cast<int>(capacity);
  if (name_size == 0 || name == nullptr) return 1;
  if (entry.word[1] != 0) return CopyName(db, entry.word[1], name_size, name);
  if (name_size < 1) return NameBufferTooSmall(name_size, 0);
  name[0] = '\0';
  return 1;
}

int UTL_DB_FILE(UtlDb *db) {
  return db == nullptr ? -1 : db->cache->fd;
}

}  // extern "C"
