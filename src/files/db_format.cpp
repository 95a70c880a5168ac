// Header image of the keyed store: the 156 bytes at offset 0 of the file,
// encoded little-endian field by field so that files are identical on every
// host. The reserved words at 4 and 8 and every title byte travel unchanged;
// the last word is written 0 and ignored when read.
#include "files/db_format.h"

#include <cstring>

namespace qx::db {

namespace {

constexpr uint32_t kTitleOffset = 12;
constexpr uint32_t kWordsOffset = 92;  // granularity, then the words in field order

}  // namespace

void EncodeHeader(const Header &h, unsigned char out[kHeaderSize]) {
  std::memcpy(out, h.magic, 4);
  PutU32(out + 4, h.reserved[0]);
  PutU32(out + 8, h.reserved[1]);
  std::memcpy(out + kTitleOffset, h.title, sizeof h.title);
  const uint32_t words[] = {h.granularity,
                            h.small_limit,
                            h.hash_selector,
                            h.free_heads,
                            h.large_head,
                            h.chunk_size,
                            h.min_extension,
                            h.first_segment,
                            h.hash_table,
                            h.last_segment,
                            static_cast<uint32_t>(h.total_keys),
                            static_cast<uint32_t>(h.free_keys),
                            static_cast<uint32_t>(h.key_increment),
                            h.buckets,
                            static_cast<uint32_t>(h.first_free),
                            0};
  for (uint32_t i = 0; i < sizeof words / sizeof words[0]; ++i)
    PutU32(out + kWordsOffset + 4 * i, words[i]);
}

void DecodeHeader(const unsigned char in[kHeaderSize], Header *h) {
  std::memcpy(h->magic, in, 4);
  h->reserved[0] = GetU32(in + 4);
  h->reserved[1] = GetU32(in + 8);
  std::memcpy(h->title, in + kTitleOffset, sizeof h->title);
  auto word = [in](int i) { return GetU32(in + kWordsOffset + 4 * i); };
  h->granularity = word(0);
  h->small_limit = word(1);
  h->hash_selector = word(2);
  h->free_heads = word(3);
  h->large_head = word(4);
  h->chunk_size = word(5);
  h->min_extension = word(6);
  h->first_segment = word(7);
  h->hash_table = word(8);
  h->last_segment = word(9);
  h->total_keys = static_cast<int32_t>(word(10));
  h->free_keys = static_cast<int32_t>(word(11));
  h->key_increment = static_cast<int32_t>(word(12));
  h->buckets = word(13);
  h->first_free = static_cast<int32_t>(word(14));
}

}  // namespace qx::db
