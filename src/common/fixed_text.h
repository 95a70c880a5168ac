// Fixed-width text fields.
//
// Many records of the library keep texts in fixed arrays (error entries, trace
// lines, path work buffers). A text longer than its field is cut, never
// refused: the field receives at most its width minus one characters and
// always ends with a terminator. A null source is taken as the empty text.
#ifndef QXBASE_COMMON_FIXED_TEXT_H
#define QXBASE_COMMON_FIXED_TEXT_H

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace qx {

// Copies src into a field of `width` bytes (width - 1 characters at most).
inline void CopyText(char *dst, std::size_t width, const char *src) {
  if (width == 0) return;
  std::size_t n = 0;
  if (src != nullptr) {
    while (n + 1 < width && src[n] != '\0')
      ++n;
    std::memcpy(dst, src, n);
  }
  dst[n] = '\0';
}

template <std::size_t N>
inline void CopyText(char (&dst)[N], const char *src) {
  CopyText(dst, N, src);
}

// printf into a fixed field, cut at its width.
#if defined(__GNUC__)
__attribute__((format(printf, 3, 4)))
#endif
inline void
FormatText(char *dst, std::size_t width, const char *format, ...) {
  if (width == 0) return;
  va_list args;
  va_start(args, format);
  int n = std::vsnprintf(dst, width, format, args);
  va_end(args);
  if (n < 0) dst[0] = '\0';
}

// Length of a possibly null text.
inline std::size_t TextLength(const char *s) {
  return s == nullptr ? 0 : std::strlen(s);
}

}  // namespace qx

#endif  // QXBASE_COMMON_FIXED_TEXT_H
