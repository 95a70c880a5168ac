// Helpers of the error calling convention shared by every family: call-site
// trace lines, records with messages and one-line diagnostics on standard
// error. See error_record.h.
#include "common/error_record.h"

#include <cstdarg>
#include <cstdio>

#include "common/fixed_text.h"

namespace qx {

void RecordErrorWithMessage(const ErrorRecord &record, const char *routine, const char *message) {
  RecordError(record, routine);
  UTL_ERROR_SET_MESSAGE(message);
}

void TraceCallSite(const char *routine, int site) {
  char line[128];
  FormatText(line, sizeof line, "%s (%d)", routine, site);
  UTL_ERROR_ADD_TRACE(line);
}

void PrintErrorLine(const char *format, ...) {
  va_list args;
  va_start(args, format);
  std::vfprintf(stderr, format, args);
  va_end(args);
}

}  // namespace qx
