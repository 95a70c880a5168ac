// utl_file: checked streams and descriptors, and the file search.
//
// Every wrapper turns a runtime failure into one error record (UTL / FILES)
// and a 0 or negative result. Reading and opening failures are warnings, the
// others fatal; the end-of-file record names the routine "UTL_FILE_READ",
// which callers match on.
#include "utl_file.h"

#include <cerrno>
#include <climits>
#include <cstdio>

#include "common/error_record.h"

namespace qx::file {
namespace {

constexpr ErrorRecord kEndOfFile{"UTL", "FILES", kWarning, "END_OF_FILE"};
constexpr ErrorRecord kReadError{"UTL", "FILES", kWarning, "FILE_READ_ERROR"};
constexpr ErrorRecord kWriteError{"UTL", "FILES", kFatal, "FILE_WRITE_ERROR"};
constexpr ErrorRecord kCloseError{"UTL", "FILES", kFatal, "FILE_CLOSE_ERROR"};
constexpr ErrorRecord kSeekError{"UTL", "FILES", kFatal, "FILE_SEEK_ERROR"};

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

}  // extern "C"
