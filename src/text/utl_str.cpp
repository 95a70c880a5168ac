// utl_str: string utilities.
//
// Copies go through the library allocator; UTL_DSTR_SAVE tags them with the
// caller's file and line so the debugging allocator lists them where they
// were made. Comparison without case folds lower-case letters to upper case.
#include "utl_str.h"

#include <cstring>

#include "utl_error.h"
#include "utl_mem.h"

namespace {

inline int FoldUpper(unsigned char c) {
  return (c >= 'a' && c <= 'z') ? c - 'a' + 'A' : c;
}

}  // namespace

extern "C" {

char *UTL_DSTR_SAVE(const char *text, const char *file, int line) {
  if (text == nullptr) return nullptr;
  const std::size_t length = std::strlen(text);
  // Historical block size: length + 1 rounded down to a multiple of 4, plus 4.
  const std::size_t block = ((length + 1) & ~static_cast<std::size_t>(3)) + 4;
  if (block > 0xFFFFFFFFu) {
    UTL_ERROR_ADD_TRACE("UTL_DSTR_SAVE");
    return nullptr;
  }
  auto *copy = static_cast<char *>(UTL_DMEM_ALLOC(static_cast<unsigned int>(block), file, line));
  if (copy == nullptr) {
    UTL_ERROR_ADD_TRACE("UTL_DSTR_SAVE");
    return nullptr;
  }
  std::memcpy(copy, text, length + 1);
  return copy;
}

int UTL_STR_CMP_NOCASE(const char *a, const char *b) {
  if (a == nullptr || b == nullptr) return 1;
  auto *p = reinterpret_cast<const unsigned char *>(a);
  auto *q = reinterpret_cast<const unsigned char *>(b);
  for (;; ++p, ++q) {
    const int diff = FoldUpper(*p) - FoldUpper(*q);
    if (diff != 0 || *p == '\0') return diff;
  }
}

}  // extern "C"
