// utl_str: string utilities.
//
// Small services on 8-bit NUL-terminated text. New texts come from the
// library allocator tagged "utl_str"; UTL_DSTR_SAVE tags its copy with the
// caller's file and line so the debugging allocator lists it where it was
// made. Case folding is ASCII only (a shift of 32), a blank is the space
// character only, and the searches and validations answer -1 or 0 without
// touching the error stack: only allocation failures and the conversion
// errors of UTL_STR_ATOF are recorded. The string buffer lives in
// utl_strbuf.cpp.
#include "utl_str.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "common/error_record.h"
#include "common/fixed_text.h"
#include "utl_byte.h"
#include "utl_error.h"
#include "utl_mem.h"

namespace qx::str {
namespace {

constexpr const char *kTag = "utl_str";

constexpr ErrorRecord kNullString = {"UTL", "STR", kWarning, "NULL_STRING"};
constexpr ErrorRecord kIllegalValue = {"UTL", "STR", kWarning, "ILLEGAL_VALUE"};
constexpr ErrorRecord kMathError = {"UTL", "STR", kWarning, "MATH_ERROR"};

inline int FoldUpper(unsigned char c) {
  return (c >= 'a' && c <= 'z') ? c - 32 : c;
}
inline int FoldLower(unsigned char c) {
  return (c >= 'A' && c <= 'Z') ? c + 32 : c;
}
inline bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// A fresh block for a text of `length` characters, or null (the allocator
// has recorded NO_MEMORY). Lengths past the allocator's 32-bit size are
// refused the same way, without asking it.
char *AllocateText(std::size_t length, int line) {
  if (length >= UINT_MAX) return nullptr;
  return static_cast<char *>(UTL_DMEM_ALLOC(static_cast<unsigned int>(length + 1), kTag, line));
}

// A copy of text with every character mapped through fold (UPCASE, LOCASE).
char *MappedCopy(const char *text, int (*fold)(unsigned char), const char *routine) {
  if (text == nullptr) return Fail(kNullString, routine, static_cast<char *>(nullptr));
  const std::size_t length = std::strlen(text);
  char *copy = AllocateText(length, __LINE__);
  if (copy == nullptr) return TraceAndFail(routine, copy);
  for (std::size_t i = 0; i <= length; ++i) {
    copy[i] = static_cast<char>(fold(static_cast<unsigned char>(text[i])));
  }
  return copy;
}

// A copy of text[first, first + count) as a new text.
char *SliceCopy(const char *text, std::size_t first, std::size_t count, int line) {
  char *copy = AllocateText(count, line);
  if (copy == nullptr) return nullptr;
  UTL_BYTE_COPY(copy, text + first, static_cast<unsigned int>(count));
  copy[count] = '\0';
  return copy;
}

// Shared by the case-insensitive comparisons: at most `limit` characters.
int CompareFolded(const char *a, const char *b, std::size_t limit) {
  if (a == nullptr || b == nullptr) return 1;
  auto *p = reinterpret_cast<const unsigned char *>(a);
  auto *q = reinterpret_cast<const unsigned char *>(b);
  for (std::size_t i = 0; i < limit; ++i) {
    const int diff = FoldUpper(p[i]) - FoldUpper(q[i]);
    if (diff != 0 || p[i] == '\0') return diff;
  }
  return 0;
}

// Parses an optional minus and digits at text; false when the value leaves
// the int range.
bool ParseInt(const char *text, char minus, int *result, const char **stop) {
  const bool negative = *text == minus;
  if (negative) ++text;
  std::int64_t value = 0;
  for (; IsDigit(*text); ++text) {
    value = value * 10 + (*text - '0');
    if (value > static_cast<std::int64_t>(INT_MAX) + 1) return false;
  }
  if (negative) value = -value;
  if (value > INT_MAX) return false;
  *result = static_cast<int>(value);
  if (stop != nullptr) *stop = text;
  return true;
}

// Shared by UTL_STR_EXTRACT_INT and UTL_STR_EXTRACT_INT_M.
int ExtractInt(const char *text, char minus, int *result) {
  if (text == nullptr || result == nullptr) return 0;
  for (const char *p = text; *p != '\0'; ++p) {
    if (IsDigit(*p) || (*p == minus && IsDigit(p[1]))) return ParseInt(p, minus, result, nullptr);
  }
  return 0;
}

const char *SkipDigits(const char *p) {
  while (IsDigit(*p))
    ++p;
  return p;
}

// The accepted form of UTL_STR_ATOF on a text without spaces, upper case.
// Every digit run but the exponent's may be empty: it has always been so.
bool IsRealNumber(const char *p) {
  if (*p == '+' || *p == '-' || *p == '.') ++p;
  p = SkipDigits(p);
  if (*p == '.') p = SkipDigits(p + 1);
  if (*p == 'E') {
    ++p;
    if (*p == '+' || *p == '-') ++p;
    if (!IsDigit(*p)) return false;
    p = SkipDigits(p);
  }
  return *p == '\0';
}

// Converts a validated text; false (and errno cleared) on a domain or range
// error.
bool ConvertReal(const char *text, double *value) {
  errno = 0;
  *value = std::strtod(text, nullptr);
  const bool failed = errno == EDOM || errno == ERANGE;
  if (failed) {
    errno = 0;
    *value = 0.0;
  }
  return !failed;
}

// The work area of UTL_STR_SUBSTITUTE: max(|text| x |replacement|, |text|)
// + 1 bytes. That bounds the result because the pattern is never empty.
std::uint64_t SubstituteArea(std::size_t text_length, std::size_t replacement_length) {
  const std::uint64_t product =
      static_cast<std::uint64_t>(text_length) * static_cast<std::uint64_t>(replacement_length);
  return (product > text_length ? product : text_length) + 1;
}

}  // namespace
}  // namespace qx::str

using namespace qx::str;

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

char *UTL_STR_CONCATENATE(const char *a, const char *b) {
  const std::size_t la = qx::TextLength(a);
  const std::size_t lb = qx::TextLength(b);
  char *joined = AllocateText(la + lb, __LINE__);
  if (joined == nullptr) return qx::TraceAndFail("UTL_STR_CONCATENATE", joined);
  if (la > 0) std::memcpy(joined, a, la);
  if (lb > 0) std::memcpy(joined + la, b, lb);
  joined[la + lb] = '\0';
  return joined;
}

char *UTL_STR_NCONCATENATE(const char *first, ...) {
  std::size_t total = 0;
  va_list args;
  va_start(args, first);
  for (const char *t = first; t != nullptr; t = va_arg(args, const char *))
    total += std::strlen(t);
  va_end(args);
  char *joined = AllocateText(total, __LINE__);
  if (joined == nullptr) return nullptr;  // no trace: it has never added one
  char *out = joined;
  va_start(args, first);
  for (const char *t = first; t != nullptr; t = va_arg(args, const char *)) {
    const std::size_t n = std::strlen(t);
    std::memcpy(out, t, n);
    out += n;
  }
  va_end(args);
  *out = '\0';
  return joined;
}

int UTL_STR_CMP_NOCASE(const char *a, const char *b) {
  return CompareFolded(a, b, SIZE_MAX);
}

int UTL_STR_NCMP_NOCASE(const char *a, const char *b, int n) {
  return CompareFolded(a, b, n > 0 ? static_cast<std::size_t>(n) : SIZE_MAX);
}

int UTL_STR_FIND_STR(int count, const char *const *texts, const char *text) {
  if (count < 1 || texts == nullptr || text == nullptr) return -1;
  for (int i = 0; i < count; ++i) {
    if (texts[i] != nullptr && std::strcmp(texts[i], text) == 0) return i;
  }
  return -1;
}

int UTL_STR_SUBSTRING(const char *text, const char *part) {
  if (text == nullptr || part == nullptr) return -1;
  if (*part == '\0') return static_cast<int>(std::strlen(text));  // found at the end
  const char *found = std::strstr(text, part);
  return found == nullptr ? -1 : static_cast<int>(found - text);
}

int UTL_STR_SUBSTRING_NOCASE(const char *text, const char *part) {
  if (text == nullptr || part == nullptr || *text == '\0' || *part == '\0') return -1;
  const std::size_t n = std::strlen(part);
  for (const char *p = text; *p != '\0'; ++p) {
    if (CompareFolded(p, part, n) == 0) return static_cast<int>(p - text);
  }
  return -1;
}

int UTL_STR_FIRST_NONBLANK(const char *text) {
  if (text == nullptr) return -1;
  for (const char *p = text; *p != '\0'; ++p) {
    if (*p != ' ') return static_cast<int>(p - text);
  }
  return -1;
}

int UTL_STR_LAST_NONBLANK(const char *text) {
  if (text == nullptr) return -1;
  for (std::size_t i = std::strlen(text); i > 0; --i) {
    if (text[i - 1] != ' ') return static_cast<int>(i - 1);
  }
  return -1;
}

void UTL_STR_TRIM_TRAILING_BLANKS(char *text) {
  if (text == nullptr) return;
  text[UTL_STR_LAST_NONBLANK(text) + 1] = '\0';
}

char *UTL_STR_NOSPACE(const char *text) {
  if (text == nullptr) return nullptr;
  char *copy = AllocateText(std::strlen(text), __LINE__);
  if (copy == nullptr) return qx::TraceAndFail("UTL_STR_NOSPACE", copy);
  char *out = copy;
  for (const char *p = text; *p != '\0'; ++p) {
    if (*p != ' ') *out++ = *p;
  }
  *out = '\0';
  return copy;
}

char *UTL_STR_NO_LEAD_OR_TRAIL_SPACE(const char *text) {
  const int first = UTL_STR_FIRST_NONBLANK(text);
  if (first < 0) return nullptr;
  const int last = UTL_STR_LAST_NONBLANK(text);
  char *copy = SliceCopy(text, first, static_cast<std::size_t>(last - first + 1), __LINE__);
  if (copy == nullptr) return qx::TraceAndFail("UTL_STR_NO_LEAD_OR_TRAIL_SPACE", copy);
  return copy;
}

char *UTL_STR_UPCASE(const char *text) {
  return MappedCopy(text, FoldUpper, "UTL_STR_UPCASE");
}

char *UTL_STR_LOCASE(const char *text) {
  return MappedCopy(text, FoldLower, "UTL_STR_LOCASE");
}

int UTL_STR_ATOI(const char *text, int *result) {
  if (result == nullptr) return 0;
  *result = 0;
  if (text == nullptr || *text == '\0') return 0;
  while (*text == ' ')
    ++text;
  int value = 0;
  const char *stop = nullptr;
  if (!ParseInt(text, '-', &value, &stop) || *stop != '\0') return 0;
  *result = value;
  return 1;
}

int UTL_STR_EXTRACT_INT(const char *text, int *result) {
  return ExtractInt(text, '-', result);
}

int UTL_STR_EXTRACT_INT_M(const char *text, char minus, int *result) {
  return ExtractInt(text, minus, result);
}

double UTL_STR_ATOF(const char *text) {
  if (text == nullptr) {
    qx::RecordError(kIllegalValue, "");
    return qx::TraceAndFail("UTL_STR_ATOF", 0.0);
  }
  char *work = UTL_STR_NOSPACE(text);
  if (work == nullptr) return qx::TraceAndFail("UTL_STR_ATOF", 0.0);
  for (char *p = work; *p != '\0'; ++p)
    *p = static_cast<char>(FoldUpper(*p));
  double value = 0.0;
  bool ok = IsRealNumber(work);
  if (!ok) {
    qx::RecordError(kIllegalValue, "");
  } else if (!ConvertReal(work, &value)) {
    qx::RecordError(kMathError, "atof()");
    ok = false;
  }
  if (ok) {
    UTL_DMEM_FREE(work, kTag, __LINE__);
    return value;
  }
  qx::FreeAfterError(work, kTag, __LINE__);
  return qx::TraceAndFail("UTL_STR_ATOF", 0.0);
}

int UTL_STR_SUBSTITUTE(const char *pattern, const char *replacement, char *text) {
  if (pattern == nullptr || *pattern == '\0' || replacement == nullptr || text == nullptr) {
    return 0;
  }
  const std::size_t text_length = std::strlen(text);
  const std::size_t pattern_length = std::strlen(pattern);
  const std::size_t replacement_length = std::strlen(replacement);
  const std::uint64_t area = SubstituteArea(text_length, replacement_length);
  if (area > UINT_MAX) return 0;
  auto *work = static_cast<char *>(UTL_DMEM_ALLOC(static_cast<unsigned int>(area), kTag, __LINE__));
  if (work == nullptr) return 0;  // no trace: it has never added one
  int replaced = 0;
  char *out = work;
  for (const char *p = text; *p != '\0';) {
    if (std::strncmp(p, pattern, pattern_length) == 0) {
      std::memcpy(out, replacement, replacement_length);
      out += replacement_length;
      p += pattern_length;
      ++replaced;
    } else {
      *out++ = *p++;
    }
  }
  *out = '\0';
  if (replaced > 0) std::memcpy(text, work, static_cast<std::size_t>(out - work) + 1);
  UTL_DMEM_FREE(work, kTag, __LINE__);
  return replaced;
}

int UTL_STR_IS_WILD_NAME(const char *text) {
  if (text == nullptr || std::strchr(text, '*') == nullptr) return 0;
  return std::strcmp(text, "*") == 0 ? 1 : 2;
}

char *UTL_STR_STRIP_SURR_QUOTES(const char *text) {
  if (text == nullptr) return nullptr;
  const std::size_t length = std::strlen(text);
  const bool quoted =
      length >= 2 && (text[0] == '"' || text[0] == '\'') && text[length - 1] == text[0];
  if (quoted) {
    char *inner = SliceCopy(text, 1, length - 2, __LINE__);
    if (inner == nullptr) qx::TraceCallSite("UTL_STR_STRIP_SURR_QUOTES", 10);
    return inner;
  }
  char *copy = UTL_DSTR_SAVE(text, kTag, __LINE__);
  if (copy == nullptr) qx::TraceCallSite("UTL_STR_STRIP_SURR_QUOTES", 20);
  return copy;
}

char *UTL_STR_SKRUNCH_CHAR(const char *text, char c) {
  if (text == nullptr) return nullptr;
  char *copy = AllocateText(std::strlen(text), __LINE__);
  if (copy == nullptr) {
    qx::TraceCallSite("UTL_STR_SKRUNCH_CHAR", 10);
    return nullptr;
  }
  char *out = copy;
  for (const char *p = text; *p != '\0'; ++p) {
    if (*p == c && out > copy && out[-1] == c) continue;
    *out++ = *p;
  }
  *out = '\0';
  return copy;
}

}  // extern "C"
