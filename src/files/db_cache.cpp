// Chunk cache of the keyed store.
//
// The heap is cut into chunks of a fixed size (from the header or the open
// call); the last chunk may be shorter, and its size is what is read and
// written for it, although every buffer is allocated at the full chunk size
// (growth fills the last chunk up before adding new ones). Each chunk has a
// slot {flags, clock, bytes}; the slot and scratch arrays hold one entry more
// than there are chunks. A chunk is loaded on first touch and stamped with the
// access clock, which advances once per access. At most 50 chunks stay
// resident: when an access leaves more, every dirty chunk of the file is
// written and the least recently used chunks are released until 25 remain.
// Eviction is therefore rare and batched. A chunk whose write failed is kept
// rather than released, so a failing disk never silently drops data. Bytes of
// a buffer beyond what the file held read as zero, as the file's own
// extension does.
#include "files/db_cache.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "common/error_record.h"
#include "utl_mem.h"

namespace qx::db {

namespace {

constexpr uint32_t kDirty = 1;
constexpr uint32_t kLoaded = 2;
constexpr uint32_t kReserved = 4;

void *Allocate(uint64_t bytes, int line) {
  if (bytes > 0xFFFFFFFFu) return nullptr;
  return UTL_DMEM_ALLOC(static_cast<unsigned int>(bytes), kTag, line);
}

uint32_t ChunkLength(const Cache *cache, uint32_t c) {
  return c + 1 == cache->chunk_count ? cache->last_size : cache->chunk_size;
}

// Reads exactly len bytes at offset; false on any error or short read.
bool ReadAt(int fd, uint64_t offset, unsigned char *dst, uint32_t len) {
  return lseek(fd, static_cast<off_t>(offset), SEEK_SET) >= 0 && ReadFully(fd, dst, len);
}

bool LoadChunk(Cache *cache, uint32_t c) {
  ChunkSlot &slot = cache->slots[c];
  auto *bytes = static_cast<unsigned char *>(UTL_DMEM_ALLOC(cache->chunk_size, kTag, __LINE__));
  if (bytes == nullptr) return false;
  const uint32_t length = ChunkLength(cache, c);
  if (!ReadAt(cache->fd, uint64_t{c} * cache->chunk_size, bytes, length)) {
    UTL_DMEM_FREE(bytes, kTag, __LINE__);
    return false;
  }
  std::memset(bytes + length, 0, cache->chunk_size - length);
  slot.bytes = bytes;
  slot.flags = kLoaded;
  slot.clock = cache->clock;
  ++cache->loaded;
  return true;
}

bool WriteChunk(Cache *cache, uint32_t c) {
  const uint64_t offset = uint64_t{c} * cache->chunk_size;
  const bool last = c + 1 == cache->chunk_count;
  if (lseek(cache->fd, static_cast<off_t>(offset), SEEK_SET) < 0) {
    PrintErrorLine(last ? "FlushHeap: Failed to Seek to last disk address %d\n"
                        : "FlushHeap: Failed to Seek to disk address %d\n",
                   static_cast<int>(offset));
    return false;
  }
  if (!WriteFully(cache->fd, cache->slots[c].bytes, ChunkLength(cache, c))) {
    if (last)
      PrintErrorLine("FlushHeap: Failed to write last chunk to disk\n");
    else
      PrintErrorLine("FlushHeap: Failed to write chunk %d to disk\n", static_cast<int>(c));
    return false;
  }
  cache->slots[c].flags &= ~kDirty;
  return true;
}

void ReleaseChunk(Cache *cache, ChunkSlot *slot) {
  UTL_DMEM_FREE(slot->bytes, kTag, __LINE__);
  slot->bytes = nullptr;
  slot->flags &= ~(kLoaded | kReserved | kDirty);
  --cache->loaded;
}

// Writes all dirty chunks, then releases the least recently used ones until
// half the limit remains.
void Evict(Cache *cache) {
  if (cache->loaded <= cache->limit) return;
  int n = 0;
  for (uint32_t c = 0; c < cache->chunk_count; ++c)
    if (cache->slots[c].flags & kLoaded) cache->scratch[n++] = &cache->slots[c];
  std::sort(cache->scratch, cache->scratch + n,
            [](const ChunkSlot *a, const ChunkSlot *b) { return a->clock < b->clock; });
  FlushHeap(cache);
  for (int i = 0; i < n && cache->loaded > cache->limit / 2; ++i)
    if (!(cache->scratch[i]->flags & kDirty)) ReleaseChunk(cache, cache->scratch[i]);
}

bool InHeap(const Cache *cache, uint64_t addr, uint64_t *chunk) {
  *chunk = addr / cache->chunk_size;
  if (*chunk >= cache->chunk_count) return false;
  return *chunk + 1 < cache->chunk_count || addr % cache->chunk_size < cache->last_size;
}

// The diagnostics of an access that leaves the heap at `chunk`.
bool ReportOutsideHeap(const Cache *cache, uint64_t chunk, uint64_t addr, uint32_t len,
                       bool writing) {
  PrintErrorLine("HeapSeek: Attempt to seek to %d chunk is greater than limit of %d chunks\n",
                 static_cast<int>(chunk), static_cast<int>(cache->chunk_count));
  if (writing)
    PrintErrorLine("HeapWrite: Cannot find room for %d bytes in heap\n", static_cast<int>(len));
  else
    PrintErrorLine("HeapRead: Cannot find %d bytes at location %d\n", static_cast<int>(len),
                   static_cast<int>(addr));
  return false;
}

// Makes chunks first .. last resident.
bool LoadChunks(Cache *cache, uint64_t first, uint64_t last, bool writing) {
  for (uint64_t c = first; c <= last; ++c) {
    if (!(cache->slots[c].flags & kLoaded) && !LoadChunk(cache, static_cast<uint32_t>(c))) {
      PrintErrorLine(writing ? "HeapWrite: Failed to read chunk from disk\n"
                             : "HeapRead: Failed to read chunk from disk\n");
      return false;
    }
  }
  return true;
}

// The one core of HeapRead and HeapWrite: bound checks, loading, the copy
// across chunk boundaries, the clock, eviction.
bool Transfer(Cache *cache, uint64_t addr, unsigned char *mem, uint32_t len, bool writing) {
  if (len == 0) return true;
  uint64_t first = 0;
  uint64_t last = 0;
  const bool ok = InHeap(cache, addr, &first);
  if (!ok || !InHeap(cache, addr + len - 1, &last))
    return ReportOutsideHeap(cache, ok ? last : first, addr, len, writing);
  if (!LoadChunks(cache, first, last, writing)) return false;
  uint32_t offset = static_cast<uint32_t>(addr % cache->chunk_size);
  for (uint64_t c = first; c <= last; ++c, offset = 0) {
    ChunkSlot &slot = cache->slots[c];
    const uint32_t n = std::min(len, cache->chunk_size - offset);
    if (writing) {
      std::memcpy(slot.bytes + offset, mem, n);
      slot.flags |= kDirty;
    } else {
      std::memcpy(mem, slot.bytes + offset, n);
    }
    mem += n;
    len -= n;
  }
  cache->slots[first].clock = cache->clock;
  cache->slots[last].clock = cache->clock;
  ++cache->clock;
  Evict(cache);
  return true;
}

// Points the scratch and slot arrays at room for `count` chunks.
bool ReserveSlots(Cache *cache, uint64_t count) {
  const uint64_t slot_bytes = (count + 1) * sizeof(ChunkSlot);
  const uint64_t scratch_bytes = (count + 1) * sizeof(ChunkSlot *);
  if (slot_bytes > 0xFFFFFFFFu) return false;
  void *slots =
      UTL_DMEM_REALLOC(cache->slots, static_cast<unsigned int>(slot_bytes), kTag, __LINE__);
  if (slots == nullptr) return false;
  cache->slots = static_cast<ChunkSlot *>(slots);
  void *scratch =
      UTL_DMEM_REALLOC(cache->scratch, static_cast<unsigned int>(scratch_bytes), kTag, __LINE__);
  if (scratch == nullptr) return false;
  cache->scratch = static_cast<ChunkSlot **>(scratch);
  for (uint64_t c = cache->chunk_count; c <= count; ++c)
    cache->slots[c] = ChunkSlot{0, cache->clock, nullptr};
  return true;
}

}  // namespace

bool ReadFully(int fd, unsigned char *dst, uint32_t len) {
  while (len > 0) {
    const ssize_t n = read(fd, dst, len);
    if (n <= 0) return false;
    dst += n;
    len -= static_cast<uint32_t>(n);
  }
  return true;
}

bool WriteFully(int fd, const unsigned char *src, uint32_t len) {
  while (len > 0) {
    const ssize_t n = write(fd, src, len);
    if (n <= 0) return false;
    src += n;
    len -= static_cast<uint32_t>(n);
  }
  return true;
}

Cache *CreateCache(int fd, uint32_t chunk_size, uint64_t file_size) {
  const uint64_t count = chunk_size == 0 ? 0 : (file_size + chunk_size - 1) / chunk_size;
  auto *cache =
      static_cast<Cache *>(chunk_size == 0 || chunk_size > kMaxChunkSize || file_size > kMaxFileSize
                               ? nullptr
                               : Allocate(sizeof(Cache), __LINE__));
  if (cache != nullptr) {
    *cache = Cache{fd, chunk_size, kResidentLimit, 0, 0, 0, 0, nullptr, nullptr};
    if (ReserveSlots(cache, count)) {
      cache->chunk_count = static_cast<uint32_t>(count);
      cache->last_size =
          static_cast<uint32_t>(file_size - (count == 0 ? 0 : count - 1) * uint64_t{chunk_size});
      return cache;
    }
    DestroyCache(cache);
  }
  PrintErrorLine("CreateHeap: Failed to Allocate Heap of %d chunks\n", static_cast<int>(count));
  return nullptr;
}

void DestroyCache(Cache *cache) {
  if (cache == nullptr) return;
  if (cache->slots != nullptr) {
    for (uint32_t c = 0; c < cache->chunk_count; ++c)
      UTL_DMEM_FREE(cache->slots[c].bytes, kTag, __LINE__);
  }
  UTL_DMEM_FREE(cache->slots, kTag, __LINE__);
  UTL_DMEM_FREE(cache->scratch, kTag, __LINE__);
  UTL_DMEM_FREE(cache, kTag, __LINE__);
}

bool HeapRead(Cache *cache, uint64_t addr, void *dst, uint32_t len) {
  return Transfer(cache, addr, static_cast<unsigned char *>(dst), len, false);
}

bool HeapWrite(Cache *cache, uint64_t addr, const void *src, uint32_t len) {
  // Transfer only reads from `mem` when writing.
  return Transfer(cache, addr, static_cast<unsigned char *>(const_cast<void *>(src)), len, true);
}

bool FlushHeap(Cache *cache) {
  for (uint32_t c = 0; c < cache->chunk_count; ++c)
    if ((cache->slots[c].flags & kDirty) && !WriteChunk(cache, c)) return false;
  return true;
}

uint64_t HeapEnd(const Cache *cache) {
  if (cache->chunk_count == 0) return 0;
  return uint64_t{cache->chunk_count - 1} * cache->chunk_size + cache->last_size;
}

bool ExtendHeap(Cache *cache, uint32_t extension) {
  const uint64_t end = HeapEnd(cache) + extension;
  const uint64_t count = (end + cache->chunk_size - 1) / cache->chunk_size;
  if (extension == 0 || end > kMaxFileSize || !ReserveSlots(cache, count)) return false;
  if (lseek(cache->fd, static_cast<off_t>(end - 1), SEEK_SET) < 0) {
    PrintErrorLine("ExtendHeap: Failed to extend file %d bytes by lseek\n",
                   static_cast<int>(extension));
    return false;
  }
  const unsigned char zero = 0;
  if (!WriteFully(cache->fd, &zero, 1)) {
    PrintErrorLine("ExtendHeap: Failed to extend file 1 bytes by write\n");
    return false;
  }
  cache->chunk_count = static_cast<uint32_t>(count);
  cache->last_size = static_cast<uint32_t>(end - (count - 1) * cache->chunk_size);
  return true;
}

}  // namespace qx::db
