// Copy-or-reference data blocks, shared by the list, hash table, queue and stack.
//
// A container element keeps a 32-bit size word and a data field. Bit 31 of the
// size word marks a block held by reference (the caller's pointer, never freed
// by the container); bits 0..30 hold the byte count. A copied block of at most
// kInline bytes lives in the data field itself; a larger one (any nonzero one
// when kInline is 0) lives in allocator storage of exactly its count, owned by
// the element, whose address the data field holds. The data field is at least
// pointer-sized and need not be pointer-aligned: pointers go in and out of it
// with memcpy.
//
// Usage: `using Rules = qx::BlockRules<8>;` then call Rules::StoreCopy,
// StoreReference, Release, Retrieve, Address on the element's fields.
#ifndef QXBASE_CONTAINERS_DATA_BLOCK_H
#define QXBASE_CONTAINERS_DATA_BLOCK_H

#include <cstdint>
#include <cstring>

#include "utl_mem.h"

namespace qx {

inline constexpr std::uint32_t kByReference = 0x80000000u;
inline constexpr std::uint32_t kCountMask = 0x7FFFFFFFu;

constexpr std::uint32_t BlockCount(std::uint32_t size_word) {
  return size_word & kCountMask;
}
constexpr bool IsReference(std::uint32_t size_word) {
  return (size_word & kByReference) != 0;
}

template <std::uint32_t kInline>
struct BlockRules {
  // The data field holds the block's bytes rather than a pointer.
  static constexpr bool IsInline(std::uint32_t size_word) {
    return kInline > 0 && !IsReference(size_word) && BlockCount(size_word) <= kInline;
  }

  // The element owns separate storage, and only then may it release it.
  static constexpr bool OwnsStorage(std::uint32_t size_word) {
    return !IsReference(size_word) && BlockCount(size_word) > kInline;
  }

  static void *StoredPointer(const unsigned char *field) {
    void *ptr;
    std::memcpy(&ptr, field, sizeof ptr);
    return ptr;
  }

  static void SetStoredPointer(unsigned char *field, const void *ptr) {
    std::memcpy(field, &ptr, sizeof ptr);
  }

  // Where the block's bytes are: the field itself or the pointer it holds.
  static void *Address(std::uint32_t size_word, unsigned char *field) {
    return IsInline(size_word) ? static_cast<void *>(field) : StoredPointer(field);
  }

  // Stores a copy of count bytes. Returns false (size word and field
  // untouched) when the storage cannot be allocated; the allocator has then
  // recorded NO_MEMORY.
  static bool StoreCopy(std::uint32_t &size_word, unsigned char *field, const void *bytes,
                        std::uint32_t count, const char *tag, int line) {
    count &= kCountMask;
    if (kInline > 0 && count <= kInline) {
      if (count > 0) std::memcpy(field, bytes, count);
    } else if (count == 0) {
      SetStoredPointer(field, nullptr);
    } else {
      void *storage = UTL_DMEM_ALLOC(count, tag, line);
      if (storage == nullptr) return false;
      std::memcpy(storage, bytes, count);
      SetStoredPointer(field, storage);
    }
    size_word = count;
    return true;
  }

  // Overwrites owned storage of the same count in place; false when the
  // element does not own a block of exactly that count.
  static bool OverwriteInPlace(std::uint32_t size_word, unsigned char *field, const void *bytes,
                               std::uint32_t count) {
    if (!OwnsStorage(size_word) || BlockCount(size_word) != count) return false;
    std::memcpy(StoredPointer(field), bytes, count);
    return true;
  }

  // Keeps the caller's pointer; nothing is copied and nothing will be freed.
  static void StoreReference(std::uint32_t &size_word, unsigned char *field, const void *ptr,
                             std::uint32_t count) {
    size_word = count | kByReference;
    SetStoredPointer(field, ptr);
  }

  // Releases owned storage, if any. Returns the allocator's status (1 when
  // nothing needed releasing). The size word is left for the caller to reset.
  static int Release(std::uint32_t size_word, unsigned char *field, const char *tag, int line) {
    if (!OwnsStorage(size_word)) return 1;
    return UTL_DMEM_FREE(StoredPointer(field), tag, line);
  }

  // Copies the block into buf, at most buf_size bytes, and reports the full
  // count. Returns true when the copy was cut short (the caller records its
  // "DATA_OVFL" warning).
  static bool Retrieve(std::uint32_t size_word, unsigned char *field, void *buf,
                       std::uint32_t buf_size, std::uint32_t *out_count) {
    const std::uint32_t count = BlockCount(size_word);
    if (out_count != nullptr) *out_count = count;
    const std::uint32_t copied = count > buf_size ? buf_size : count;
    if (copied > 0) std::memcpy(buf, Address(size_word, field), copied);
    return count > buf_size;
  }
};

}  // namespace qx

#endif  // QXBASE_CONTAINERS_DATA_BLOCK_H
