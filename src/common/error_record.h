// The five-string error record and the calling convention around it.
//
// A failing routine records product, facility, severity and code with its own
// name as the first trace line; each caller passing the failure upward adds
// "%s (%d)" of its name and the call site. Clean-up after a recorded error is
// bracketed by a barrier so that whatever the clean-up records is discarded.
// Families that print instead of recording write one line on standard error
// and return their failure value.
#ifndef QXBASE_COMMON_ERROR_RECORD_H
#define QXBASE_COMMON_ERROR_RECORD_H

#include "utl_error.h"
#include "utl_mem.h"

namespace qx {

inline constexpr const char *kFatal = "FATAL";
inline constexpr const char *kError = "ERROR";
inline constexpr const char *kWarning = "WARNING";
inline constexpr const char *kInfo = "INFO";

// Product, facility, severity and code of one documented failure.
struct ErrorRecord {
  const char *product;
  const char *facility;
  const char *severity;
  const char *code;
};

// Records `record` with `routine` as its first trace line.
inline void RecordError(const ErrorRecord &record, const char *routine) {
  UTL_ERROR_SET(record.product, record.facility, record.severity, record.code, routine);
}

// As RecordError, then attaches a message to the entry.
void RecordErrorWithMessage(const ErrorRecord &record, const char *routine, const char *message);

// Adds the trace line "%s (%d)" of routine and call site.
void TraceCallSite(const char *routine, int site);

// Records `record` and returns `failure`: the common tail of a failing routine.
template <typename T>
inline T Fail(const ErrorRecord &record, const char *routine, T failure) {
  RecordError(record, routine);
  return failure;
}

// Adds a plain trace line and returns `failure`.
template <typename T>
inline T TraceAndFail(const char *trace, T failure) {
  UTL_ERROR_ADD_TRACE(trace);
  return failure;
}

// Discards whatever is recorded during its lifetime (push on entry, pop on
// exit), so clean-up after an error cannot disturb the error already on top.
class ErrorBarrier {
 public:
  ErrorBarrier() { UTL_ERROR_PUSH(); }
  ~ErrorBarrier() { UTL_ERROR_POP(); }
  ErrorBarrier(const ErrorBarrier &) = delete;
  ErrorBarrier &operator=(const ErrorBarrier &) = delete;
};

// Frees a block of a routine that is failing, behind a barrier, so that
// whatever the release records cannot disturb the error being reported.
inline void FreeAfterError(void *block, const char *tag, int line) {
  ErrorBarrier barrier;
  UTL_DMEM_FREE(block, tag, line);
}

// Writes one formatted line to standard error (the caller supplies the line
// end, as the documented texts do).
#if defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
void PrintErrorLine(const char *format, ...);

}  // namespace qx

#endif  // QXBASE_COMMON_ERROR_RECORD_H
