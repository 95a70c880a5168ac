// utl_file: checked streams and descriptors, and the file search.
//
// Every wrapper turns a runtime failure into one error record (UTL / FILES)
// and a 0 or negative result. Reading and opening failures are warnings, the
// others fatal; the end-of-file record names the routine "UTL_FILE_READ",
// which callers match on.
//
// The search tries, per search directory, up to three candidates
// built in a bounded buffer; a candidate that would not fit is treated as a
// missing file, so hostile lengths end in the ordinary "not found" failure.
// UTL_FILE_FIND, UTL_FIND_FILE and the read modes of UTL_FILE_FOPEN share
// the one search core (FindAlong) and differ only in what they report.
#include "utl_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/error_record.h"
#include "common/fixed_text.h"
#include "utl_mem.h"
#include "utl_str.h"

namespace qx::file {
namespace {

constexpr const char *kTag = "utl_file";
constexpr std::size_t kPathLimit = UTL_FILE_PATH_LIMIT;

constexpr ErrorRecord kEndOfFile{"UTL", "FILES", kWarning, "END_OF_FILE"};
constexpr ErrorRecord kReadError{"UTL", "FILES", kWarning, "FILE_READ_ERROR"};
constexpr ErrorRecord kWriteError{"UTL", "FILES", kFatal, "FILE_WRITE_ERROR"};
constexpr ErrorRecord kCloseError{"UTL", "FILES", kFatal, "FILE_CLOSE_ERROR"};
constexpr ErrorRecord kSeekError{"UTL", "FILES", kFatal, "FILE_SEEK_ERROR"};
constexpr ErrorRecord kOpenError{"UTL", "FILES", kWarning, "FILE_OPEN_ERROR"};
constexpr ErrorRecord kNoFile{"UTL", "FILES", kWarning, "NONEXI_FILE"};

// Appends pieces to a fixed buffer; remembers whether anything was cut.
class PathBuilder {
 public:
  explicit PathBuilder(char *buffer) : buffer_(buffer) { buffer_[0] = '\0'; }
  PathBuilder &Add(const char *text) { return Add(text, TextLength(text)); }
  PathBuilder &Add(const char *text, std::size_t n) {
    if (n >= kPathLimit - length_) {
      overflow_ = true;
    } else if (n > 0) {
      std::memcpy(buffer_ + length_, text, n);
      length_ += n;
      buffer_[length_] = '\0';
    }
    return *this;
  }
  bool ok() const { return !overflow_; }

 private:
  char *buffer_;
  std::size_t length_ = 0;
  bool overflow_ = false;
};

// The two ways of adding the default extension to a name.
struct Suffixes {
  const char *first_joiner;
  const char *first_suffix;
  bool try_first;
  const char *second_joiner;
};

Suffixes WorkOutSuffixes(const char *name, const char *ext) {
  const bool has_dot = std::strchr(name, '.') != nullptr;
  const bool ext_leading_dot = ext != nullptr && ext[0] == '.';
  Suffixes s;
  s.first_joiner = (!has_dot && ext != nullptr && ext[0] != '\0' && !ext_leading_dot) ? "." : "";
  s.first_suffix = has_dot ? "" : ext;
  s.try_first = !(ext == nullptr && !has_dot);
  s.second_joiner = (ext == nullptr || ext_leading_dot) ? "" : ".";
  return s;
}

bool Exists(const char *path) {
  return access(path, F_OK) == 0;
}

// Tries one candidate: directory, separator, name, joiner, suffix.
bool TryCandidate(char *out, const char *dir, const char *separator, const char *name,
                  const char *joiner, const char *suffix) {
  PathBuilder path(out);
  path.Add(dir).Add(separator).Add(name).Add(joiner).Add(suffix);
  return path.ok() && Exists(out);
}

// The search shared by UTL_FILE_FIND, UTL_FIND_FILE and UTL_FILE_FOPEN: walks
// the NULL-ended search directories and leaves the first existing
// candidate in `out` (kPathLimit bytes).
bool FindAlong(const char *name, const char *ext, va_list dirs, char *out) {
  if (name == nullptr) return false;
  const Suffixes s = WorkOutSuffixes(name, ext);
  while (const char *dir = va_arg(dirs, const char *)) {
    if (dir[0] != '\0') {
      if (const char *value = std::getenv(dir)) dir = value;
    }
    const std::size_t n = std::strlen(dir);
    const char *separator = (n == 0 || dir[n - 1] == '/') ? "" : "/";
    if (TryCandidate(out, dir, separator, name, "", "")) return true;
    if (s.try_first && TryCandidate(out, dir, separator, name, s.first_joiner, s.first_suffix))
      return true;
    if (ext != nullptr && TryCandidate(out, dir, separator, name, s.second_joiner, ext))
      return true;
  }
  return false;
}

bool IsNameChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

// Replaces "$VAR" and "${VAR}" references by the variables' values; an unset
// variable's reference stays as written. False when the result does not fit.
bool ExpandReferences(const char *name, char *out) {
  PathBuilder path(out);
  const char *p = name;
  while (*p != '\0') {
    if (*p != '$') {
      const char *run = p;
      while (*p != '\0' && *p != '$')
        ++p;
      path.Add(run, static_cast<std::size_t>(p - run));
      continue;
    }
    const bool braced = p[1] == '{';
    const char *start = p + (braced ? 2 : 1);
    const char *end = start;
    while (IsNameChar(*end))
      ++end;
    const bool closed = !braced || *end == '}';
    const std::size_t length = static_cast<std::size_t>(end - start);
    const char *value = nullptr;
    char variable[256];
    if (closed && length > 0 && length < sizeof variable) {
      CopyText(variable, length + 1, start);  // the name's characters, terminated
      value = std::getenv(variable);
    }
    const char *after = end + (braced && closed ? 1 : 0);
    if (value != nullptr) {
      path.Add(value);
      p = after;
    } else {
      path.Add(p, 1);  // keep the "$" and carry on with the text after it
      ++p;
    }
  }
  return path.ok();
}

// Reports a failed search as UTL_FILE_FIND does: "File: " with the name and,
// for a name without ".", the extension as given.
void RecordMissingFile(const char *name, const char *ext) {
  char message[kPathLimit + 64];
  const bool has_dot = name != nullptr && std::strchr(name, '.') != nullptr;
  FormatText(message, sizeof message, "File: %s%s", name ? name : "",
             (has_dot || ext == nullptr) ? "" : ext);
  RecordErrorWithMessage(kNoFile, "UTL_FILE_FIND", message);
}

char *SaveFound(const char *path, const char *routine) {
  char *copy = UTL_DSTR_SAVE(path, kTag, __LINE__);
  if (copy == nullptr) TraceCallSite(routine, 0);
  return copy;
}

FILE *FailOpen(const char *name) {
  char message[kPathLimit + 16];
  FormatText(message, sizeof message, "File: %s", name ? name : "");
  RecordErrorWithMessage(kOpenError, "UTL_FILE_FOPEN", message);
  return nullptr;
}

}  // namespace
}  // namespace qx::file

using namespace qx::file;

extern "C" {

int UTL_FILE_FREAD(void *buffer, unsigned int element_size, unsigned int count, FILE *stream) {
  if (std::fread(buffer, element_size, count, stream) == count) return 1;
  // The end-of-file record keeps the historical routine name "UTL_FILE_READ".
  if (std::feof(stream)) return qx::Fail(kEndOfFile, "UTL_FILE_READ", 0);
  return qx::Fail(kReadError, "UTL_FILE_FREAD", 0);
}

int UTL_FILE_FWRITE(const void *buffer, unsigned int element_size, unsigned int count,
                    FILE *stream) {
  if (std::fwrite(buffer, element_size, count, stream) == count) return 1;
  return qx::Fail(kWriteError, "UTL_FILE_FWRITE", 0);
}

int UTL_FILE_FCLOSE(FILE *stream) {
  if (std::fclose(stream) == 0) return 1;
  return qx::Fail(kCloseError, "UTL_FILE_FCLOSE", 0);
}

int UTL_FILE_FSEEK(FILE *stream, int offset, int origin) {
  if (std::fseek(stream, offset, origin) != -1) return 1;
  return qx::Fail(kSeekError, "UTL_FILE_FSEEK", 0);
}

int UTL_FILE_FTELL(FILE *stream) {
  long position = std::ftell(stream);
  if (position >= 0 && position <= INT_MAX) return static_cast<int>(position);
  return qx::Fail(kSeekError, "UTL_FILE_FTELL", -1);
}

int UTL_FILE_OPEN(const char *path, int flags, int permission_mode) {
  if (path == nullptr || path[0] == '\0') return qx::Fail(kOpenError, "UTL_FILE_OPEN", -1);
  mode_t mode = static_cast<mode_t>(permission_mode);
  if (permission_mode == 0 && (flags & (O_CREAT | O_TMPFILE)) != 0) mode = 0666;
  const int descriptor = open(path, flags, mode);
  if (descriptor < 0) return qx::Fail(kOpenError, "UTL_FILE_OPEN", -1);
  return descriptor;
}

int UTL_FILE_CLOSE(int descriptor) {
  const int result = close(descriptor);
  if (result == -1) return qx::Fail(kCloseError, "UTL_FILE_CLOSE", -1);
  return result;
}

FILE *UTL_FILE_OPEN_FORTRAN(const char *path) {
  FILE *stream = nullptr;
  if (path != nullptr && access(path, R_OK) == 0) stream = std::fopen(path, "r");
  if (stream == nullptr)
    return qx::Fail(kOpenError, "UTL_FILE_OPEN_FORTRAN", static_cast<FILE *>(nullptr));
  return stream;
}

char *UTL_FILE_FIND(const char *name, const char *ext, ...) {
  char found[kPathLimit];
  va_list dirs;
  va_start(dirs, ext);
  const bool ok = FindAlong(name, ext, dirs, found);
  va_end(dirs);
  if (!ok) {
    RecordMissingFile(name, ext);
    return nullptr;
  }
  return SaveFound(found, "UTL_FILE_FIND");
}

char *UTL_FIND_FILE(const char *name, const char *ext, ...) {
  char found[kPathLimit];
  va_list dirs;
  va_start(dirs, ext);
  const bool ok = FindAlong(name, ext, dirs, found);
  va_end(dirs);
  return ok ? SaveFound(found, "UTL_FIND_FILE") : nullptr;
}

FILE *UTL_FILE_FOPEN(const char *name, const char *mode, const char *ext, ...) {
  if (name == nullptr || mode == nullptr) return FailOpen(name);
  char expanded[kPathLimit];
  const char *path = name;
  if (name[0] == '$') {
    if (!ExpandReferences(name, expanded)) return FailOpen(name);
    path = expanded;
  }
  FILE *stream = nullptr;
  if (mode[0] != 'r') {
    stream = std::fopen(path, mode);
  } else {
    char found[kPathLimit];
    va_list dirs;
    va_start(dirs, ext);
    const bool ok = FindAlong(path, ext, dirs, found);
    va_end(dirs);
    if (ok) stream = std::fopen(found, mode);
  }
  return stream != nullptr ? stream : FailOpen(name);
}

}  // extern "C"
