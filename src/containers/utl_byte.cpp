// utl_byte: byte equality, copies and byte-order swaps. Thin, allocation-free
// wrappers over the C library; a zero count never touches either pointer.
#include "utl_byte.h"

#include <algorithm>
#include <cstring>

extern "C" {

int UTL_BYTE_EQUAL(const void *a, const void *b, unsigned int n) {
  return n == 0 || std::memcmp(a, b, n) == 0;
}

void UTL_BYTE_COPY(void *dst, const void *src, unsigned int n) {
  if (n > 0) std::memcpy(dst, src, n);
}

void UTL_BYTE_MOVE(void *dst, const void *src, unsigned int n) {
  if (n > 0) std::memmove(dst, src, n);
}

void UTL_SWAP_BYTES(void *data, unsigned int word_size, unsigned int count) {
  if (word_size < 2) return;
  auto *word = static_cast<unsigned char *>(data);
  for (unsigned int i = 0; i < count; ++i, word += word_size)
    std::reverse(word, word + word_size);
}

}  // extern "C"
