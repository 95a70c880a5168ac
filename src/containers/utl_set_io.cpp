// utl_set_io: the bit sets' binary file form, text file form, hexadecimal
// string form and character listing.
//
// The binary form is the record itself (size word, then the words) in host
// byte order; a reader on a host of the other order asks for byte swapping.
// The text form is the size on a line, then the bytes of the words, least
// significant first, as "%02x " with a line break every 20 bytes; the last word
// contributes only the bytes that hold valid bits. Readers trust nothing in a
// file: counts are checked against the bytes the file can still hold before
// anything is allocated, numbers are scanned by hand with saturation (no
// overflow inside scanf), and every read set has the bits above its size
// cleared, so a hostile file can neither grow memory without bound nor break
// the invariant the counting routines rely on.
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <climits>
#include <cstring>

#include "containers/set_words.h"
#include "utl_byte.h"
#include "utl_file.h"
#include "utl_mem.h"
#include "utl_set.h"

namespace qx::set {
namespace {

using u32 = std::uint32_t;

constexpr ErrorRecord kFileError{"UTL", "SET", kFatal, "FILE_ERROR"};
constexpr ErrorRecord kNotHexadecimal{"UTL", "SET", kFatal, "ILLEGAL_VALUE"};
constexpr int kBytesPerLine = 20;
// Characters of the hexadecimal string form, indexed by a word's nibble: the
// digit holds the nibble's lowest element in its most significant bit.
constexpr char kNibbleDigits[] = "084C2A6E195D3B7F";

// False when `stream` is a regular file with fewer than `bytes` bytes left
// after its position; true when it has them or its size cannot be known
// (pipes, memory streams), where the read itself finds the end.
bool MayHoldBytes(std::FILE *stream, long long bytes) {
  const int fd = fileno(stream);
  struct stat info;
  if (fd < 0 || fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) return true;
  const off_t position = ftello(stream);
  return position < 0 || static_cast<long long>(info.st_size) - position >= bytes;
}

// Reads the rest of a stream known to be too short through the file layer, so
// that the failure it records, and the position it leaves, are those of the
// short read itself.
void ReadToEnd(std::FILE *stream) {
  unsigned char scratch[4096];
  while (UTL_FILE_FREAD(scratch, 1, sizeof scratch, stream)) {
  }
}

// ---- Number scanning for the text form ------------------------------------

int SkipSpace(std::FILE *stream) {
  int c;
  do
    c = std::getc(stream);
  while (c != EOF && std::isspace(c));
  return c;
}

int DigitValue(int c, int base) {
  int v = std::isdigit(c) ? c - '0' : std::isxdigit(c) ? std::tolower(c) - 'a' + 10 : base;
  return v < base ? v : -1;
}

// Scans an optionally signed number in `base` after white space, saturating
// at +-limit. False when no digit is found.
bool ScanNumber(std::FILE *stream, int base, bool allow_sign, long long limit, long long *value) {
  int c = SkipSpace(stream);
  bool negative = false;
  if (allow_sign && (c == '+' || c == '-')) {
    negative = c == '-';
    c = std::getc(stream);
  }
  if (c == EOF || DigitValue(c, base) < 0) {
    if (c != EOF) std::ungetc(c, stream);
    return false;
  }
  long long v = 0;
  for (int d; c != EOF && (d = DigitValue(c, base)) >= 0; c = std::getc(stream))
    v = std::min(v * base + d, limit);
  if (c != EOF) std::ungetc(c, stream);
  *value = negative ? -v : v;
  return true;
}

// ---- Text form -------------------------------------------------------------

// Bytes the text form writes for the last word of a set of n elements.
int LastWordBytes(int n) {
  return static_cast<int>(((static_cast<long long>(n) + 31) / 8) % 4) + 1;
}

long long TextBytes(int n) {
  return 4LL * (WordCount(n) - 1) + LastWordBytes(n);
}

struct TextWriter {
  std::FILE *stream;
  long long written = 0;

  // Writes `count` bytes of `word`; failures trace byte_site or line_site.
  bool Bytes(u32 word, int count, int byte_site, int line_site) {
    for (int i = 0; i < count; ++i) {
      if (std::fprintf(stream, "%02x ", (word >> (8 * i)) & 0xFFu) < 0) return Failed(byte_site);
      if (++written % kBytesPerLine == 0 && std::fprintf(stream, "\n") < 0)
        return Failed(line_site);
    }
    return true;
  }

  static bool Failed(int site) {
    TraceCallSite("UTL_SET_ASCII_WRITE", site);
    return false;
  }
};

UTL_SET *TextInputEnded() {
  return Fail(kFileError, "UTL_SET_ASCII_READ (10)", static_cast<UTL_SET *>(nullptr));
}

// Reads the bytes of every word into a new set of n elements.
bool ReadTextWords(std::FILE *stream, UTL_SET *set) {
  const int words = WordCount(set);
  for (int w = 0; w < words; ++w) {
    const int count = w + 1 < words ? 4 : LastWordBytes(set->size);
    u32 word = 0;
    for (int i = 0; i < count; ++i) {
      long long byte;
      if (!ScanNumber(stream, 16, false, 0x100, &byte) || byte > 0xFF) return false;
      word |= static_cast<u32>(byte) << (8 * i);
    }
    set->words[w] = word;
  }
  ClearUnusedBits(set);
  return true;
}

// ---- Binary form -----------------------------------------------------------

UTL_SET *BinaryReadFailed(int site) {
  TraceCallSite("UTL_SET_READ", site);
  return nullptr;
}

int HexValue(char c) {
  return DigitValue(static_cast<unsigned char>(c), 16);
}

}  // namespace
}  // namespace qx::set

using namespace qx::set;

extern "C" {

int UTL_SET_WRITE(FILE *stream, const UTL_SET *set) {
  if (!UTL_FILE_FWRITE(set, 4, static_cast<unsigned int>(WordCount(set) + 1), stream)) {
    qx::TraceCallSite("UTL_SET_WRITE", 10);
    return 0;
  }
  return 1;
}

UTL_SET *UTL_SET_READ(FILE *stream, int swap) {
  int n;
  if (!UTL_FILE_FREAD(&n, 4, 1, stream)) return BinaryReadFailed(10);
  if (swap) UTL_SWAP_BYTES(&n, 4, 1);
  if (n < 1) {
    qx::RecordError(kBadSetSize, "UTL_SET_CREATE");
    return BinaryReadFailed(15);
  }
  const int words = WordCount(n);
  if (!MayHoldBytes(stream, 4LL * words)) {
    ReadToEnd(stream);
    return BinaryReadFailed(20);
  }
  auto *set = static_cast<UTL_SET *>(UTL_DMEM_CALLOC(1, RecordBytes(n), kTag, __LINE__));
  if (set == nullptr) return BinaryReadFailed(15);
  if (!UTL_FILE_FREAD(set->words, 4, static_cast<unsigned int>(words), stream)) {
    {
      qx::ErrorBarrier barrier;
      UTL_SET_DESTROY(set);
    }
    return BinaryReadFailed(20);
  }
  if (swap) UTL_SWAP_BYTES(set->words, 4, static_cast<unsigned int>(words));
  set->size = n;
  ClearUnusedBits(set);
  return set;
}

int UTL_SET_ASCII_WRITE(FILE *stream, const UTL_SET *set) {
  if (std::fprintf(stream, "%d\n", set->size) < 0) return TextWriter::Failed(10);
  TextWriter out{stream};
  const int words = WordCount(set);
  for (int w = 0; w + 1 < words; ++w)
    if (!out.Bytes(set->words[w], 4, 20, 30)) return 0;
  if (!out.Bytes(set->words[words - 1], LastWordBytes(set->size), 40, 50)) return 0;
  if (out.written % kBytesPerLine != 0 && std::fprintf(stream, "\n") < 0)
    return TextWriter::Failed(60);
  return 1;
}

UTL_SET *UTL_SET_ASCII_READ(FILE *stream) {
  long long n;
  if (!ScanNumber(stream, 10, true, 1LL << 40, &n)) return TextInputEnded();
  // Each byte needs at least a digit and a separator, the last one no separator.
  if (n >= 1 && n <= INT_MAX && !MayHoldBytes(stream, 2 * TextBytes(static_cast<int>(n)) - 1))
    return TextInputEnded();
  UTL_SET *set = NewSet(n);
  if (set == nullptr) {
    qx::TraceCallSite("UTL_SET_ASCII_READ", 20);
    return nullptr;
  }
  if (!ReadTextWords(stream, set)) {
    TextInputEnded();
    qx::ErrorBarrier barrier;
    UTL_SET_DESTROY(set);
    return nullptr;
  }
  return set;
}

char *UTL_SET_TO_STRING(const UTL_SET *set) {
  const int n = set->size;
  const unsigned int length = static_cast<unsigned int>((static_cast<long long>(n) + 3) / 4);
  auto *text = static_cast<char *>(UTL_DMEM_ALLOC(length + 1, kTag, __LINE__));
  if (text == nullptr) return qx::TraceAndFail("UTL_SET_TO_STRING", text);
  for (unsigned int i = 0; i < length; ++i)
    text[i] = kNibbleDigits[(set->words[i / 8] >> (4 * (i % 8))) & 0xFu];
  text[length] = '\0';
  return text;
}

int UTL_SET_FROM_STRING(const char *string, UTL_SET *set) {
  if (string == nullptr) string = "";
  for (const char *c = string; *c != '\0'; ++c)
    if (HexValue(*c) < 0) return qx::Fail(kNotHexadecimal, "UTL_SET_FROM_STRING", 0);
  UTL_SET_CLEAR(set);
  long long first = 0;
  for (const char *c = string; *c != '\0'; ++c, first += 4) {
    const int digit = HexValue(*c);
    for (int b = 0; b < 4; ++b) {
      if ((digit & (8 >> b)) == 0) continue;
      const long long e = first + b;
      if (e >= set->size) return qx::Fail(kOutRange, "UTL_SET_INSERT", 0);
      set->words[e / kWordBits] |= u32{1} << (e % kWordBits);
    }
  }
  return 1;
}

int UTL_SET_LIST(UTL_SET_OUTPUT_FUNC output, FILE *stream, const UTL_SET *set, int skip) {
  constexpr int kGroup = 10, kLineLimit = 69;
  int items = 0, on_line = 0;
  for (int e = skip ? 1 : 0; e < set->size; ++e) {
    output(stream, UTL_SET_MEMBER(set, e) ? "1" : "0");
    ++items;
    ++on_line;
    if (items % kGroup != 0) continue;
    output(stream, " ");
    if (on_line > kLineLimit) {
      output(stream, " (%d)\n", items);
      on_line = 0;
    }
  }
  output(stream, " (%d items)\n", items);
  return 1;
}

}  // extern "C"
