// utl_error: recording, interrogating and unwinding the error stack.
//
// The stack (error_stack.h) is static and allocation-free, so an error can be
// recorded when memory is exhausted. Recording reuses the entry at `top` when
// it is empty and advances otherwise; at entry 8 a new error is dropped and
// the overflow indicator set. Emptying an entry keeps its severity text, which
// is why the severity predicates still answer after a CLEAR: callers rely on
// that, and it is kept on purpose.
#include "utl_error.h"

#include <cstring>

#include "common/fixed_text.h"
#include "error/error_stack.h"
#include "utl_str.h"

extern "C" {
const char *UtlErrorFatal = "FATAL";
const char *UtlErrorWarning = "WARNING";
const char *UtlErrorInfo = "INFO";
}

namespace qx::error {

Stack g_stack;

namespace {

// Steps 1-3 of recording: choose the entry and fill its identity. False when
// the stack is full and the error is dropped.
bool OpenRecord(const char *product, const char *facility, const char *severity, const char *code) {
  if (g_stack.top == kLastEntry) {
    g_stack.overflow = 1;
    return false;
  }
  if (TopEntry().is_set) ++g_stack.top;
  Entry &entry = TopEntry();
  CopyText(entry.product, product);
  CopyText(entry.facility, facility);
  CopyText(entry.code, code);
  CopyText(entry.severity, severity);
  entry.is_set = 1;
  entry.message[0] = '\0';
  entry.first_trace = g_stack.fill;
  return true;
}

// Appends to the pool for the top entry without the program-error check.
int PushTraceLine(const char *text) {
  if (g_stack.fill >= kTraceLines) return g_stack.fill;
  const int index = g_stack.fill;
  CopyText(g_stack.traces[index], text);
  ++TopEntry().trace_count;
  ++g_stack.fill;
  return index;
}

void Record(const char *product, const char *facility, const char *severity, const char *code,
            const char *first_trace) {
  if (OpenRecord(product, facility, severity, code)) PushTraceLine(first_trace);
}

void RecordProgramError() {
  Record("UTL", "ERROR", UtlErrorWarning, "PROGRAM_ERROR", "UTL_ERROR_ADD_TRACE");
}

void FormatFileTrace(char (&line)[kTraceWidth], const char *routine, const char *file, int n) {
  FormatText(line, sizeof line, "%.50s: %.30s(%d)", routine ? routine : "", file ? file : "", n);
}

bool SeverityIs(const Entry &entry, const char *name) {
  return UTL_STR_CMP_NOCASE(entry.severity, name) == 0;
}

// Index of the nearest barrier from `top` down to 0, or -1.
int NearestBarrier() {
  for (int e = g_stack.top; e >= 0; --e)
    if (g_stack.entries[e].barrier) return e;
  return -1;
}

void OpenBarrier() {
  if (g_stack.top >= kLastEntry) return;
  ++g_stack.top;
  Entry &entry = TopEntry();
  EmptyEntry(entry);
  entry.barrier = 1;
  entry.first_trace = g_stack.fill;
}

// Closes the barrier at `top`: its flag goes and `top` steps below it.
void CloseBarrierAtTop() {
  TopEntry().barrier = 0;
  if (g_stack.top > 0) --g_stack.top;
}

// The fatal branch of CATCH_NONFATAL: discard the kept non-fatal error and
// leave the fatal one alone, traced by the catcher.
void CollapseToFatal() {
  Entry &fatal = TopEntry();
  char product[32], facility[32], severity[16], code[32];
  CopyText(product, fatal.product);
  CopyText(facility, fatal.facility);
  CopyText(code, fatal.code);
  CopyText(severity, fatal.severity);
  if (NearestBarrier() >= 0 && TopEntry().is_set) {
    UnwindToBarrier();
    CloseBarrierAtTop();
  }
  if (TopEntry().is_set) UnwindToBarrier();
  Record(product, facility, severity, code, "UTL_ERROR_CATCH_NONFATAL");
}

}  // namespace

void EmptyEntry(Entry &entry) {
  entry.product[0] = entry.facility[0] = entry.code[0] = '\0';
  entry.is_set = 0;
  entry.trace_count = 0;
  entry.first_trace = 0;
}

void UnwindToBarrier() {
  int e = g_stack.top;
  int released_from = g_stack.fill;
  for (; e >= 0; --e) {
    Entry &entry = g_stack.entries[e];
    released_from = entry.first_trace;
    EmptyEntry(entry);
    if (entry.barrier) break;
  }
  g_stack.fill = released_from;
  g_stack.top = e >= 0 ? e : 0;
}

int AppendTrace(const char *text) {
  if (!TopEntry().is_set) RecordProgramError();
  return PushTraceLine(text);
}

}  // namespace qx::error

using qx::error::Entry;
using qx::error::g_stack;
using qx::error::TopEntry;

extern "C" {

int UTL_ERROR_SET(const char *product, const char *facility, const char *severity, const char *code,
                  const char *routine) {
  if (!qx::error::OpenRecord(product, facility, severity, code)) return 0;
  qx::error::PushTraceLine(routine);
  return 1;
}

void UTL_ERROR_SET_FILENAME(const char *product, const char *facility, const char *severity,
                            const char *code, const char *routine, const char *file, int line) {
  char trace[qx::error::kTraceWidth];
  qx::error::FormatFileTrace(trace, routine, file, line);
  qx::error::Record(product, facility, severity, code, trace);
}

int UTL_ERROR_ADD_TRACE(const char *text) {
  return qx::error::AppendTrace(text);
}

void UTL_ERROR_ADD_TRACE_FILENAME(const char *routine, const char *file, int line) {
  char trace[qx::error::kTraceWidth];
  qx::error::FormatFileTrace(trace, routine, file, line);
  qx::error::AppendTrace(trace);
}

void UTL_ERROR_SET_MESSAGE(const char *text) {
  if (TopEntry().is_set) qx::CopyText(TopEntry().message, text);
}

const char *UTL_ERROR_GET_MESSAGE(void) {
  return TopEntry().is_set ? TopEntry().message : "No error message.";
}

void UTL_ERROR_SET_SEVERITY(const char *severity) {
  if (TopEntry().is_set) qx::CopyText(TopEntry().severity, severity);
}

const char *UTL_ERROR_GET_SEVERITY(void) {
  return TopEntry().is_set ? TopEntry().severity : "SUCCESS";
}

const char *UTL_ERROR_EXCEPTION_CODE(void) {
  return TopEntry().is_set ? TopEntry().code : nullptr;
}

int UTL_ERROR_IS_SET(void) {
  return TopEntry().is_set;
}

int UTL_ERROR_IS(const char *code) {
  return UTL_STR_CMP_NOCASE(TopEntry().code, code) == 0;
}

int UTL_ERROR_IS_END_LOOP(void) {
  return UTL_ERROR_IS("UIMS_USER_END_LOOP");
}

int UTL_ERROR_IS_ABORT(void) {
  return UTL_ERROR_IS("UIMS_USER_CANCEL");
}

int UTL_ERROR_IS_FATAL(void) {
  return qx::error::SeverityIs(TopEntry(), UtlErrorFatal);
}

int UTL_ERROR_IS_WARNING(void) {
  return qx::error::SeverityIs(TopEntry(), UtlErrorWarning);
}

int UTL_ERROR_IS_INFO(void) {
  return qx::error::SeverityIs(TopEntry(), UtlErrorInfo);
}

int UTL_ERROR_ANY_FATAL(void) {
  for (int e = g_stack.top; e >= 0; --e)
    if (qx::error::SeverityIs(g_stack.entries[e], "FATAL")) return 1;
  return 0;
}

void UTL_ERROR_INTERPRET(char *product, char *facility, char *severity, char *code) {
  const Entry &entry = TopEntry();
  if (product != nullptr) std::strcpy(product, entry.product);
  if (facility != nullptr) std::strcpy(facility, entry.facility);
  if (code != nullptr) std::strcpy(code, entry.code);
  if (severity != nullptr) std::strcpy(severity, entry.is_set ? entry.severity : "SUCCESS");
}

int UTL_ERROR_SAVE(char **product, char **facility, char **severity, char **code) {
  if (!TopEntry().is_set) return -1;
  const Entry &entry = TopEntry();
  struct Request {
    char **out;
    const char *text;
  };
  const Request requests[] = {
      {product, entry.product},
      {facility, entry.facility},
      {code, entry.code},
      {severity, entry.severity},
  };
  for (const Request &request : requests) {
    if (request.out == nullptr) continue;
    *request.out = UTL_DSTR_SAVE(request.text, "utl_error", __LINE__);
    if (*request.out == nullptr) {
      UTL_ERROR_ADD_TRACE("UTL_ERROR_SAVE");
      return 0;
    }
  }
  return 1;
}

void UTL_ERROR_PUSH(void) {
  qx::error::OpenBarrier();
}

void UTL_ERROR_POP(void) {
  if (qx::error::NearestBarrier() < 0) return;
  if (TopEntry().is_set) qx::error::UnwindToBarrier();
  qx::error::CloseBarrierAtTop();
}

void UTL_ERROR_CLEAR(void) {
  if (TopEntry().is_set) qx::error::UnwindToBarrier();
}

int UTL_ERROR_CATCH_NONFATAL(int *state) {
  if (!TopEntry().is_set) return 1;
  if (!qx::error::SeverityIs(TopEntry(), UtlErrorFatal)) {
    if (*state == 0)
      qx::error::OpenBarrier();
    else
      qx::error::UnwindToBarrier();
    *state = 1;
    return 1;
  }
  if (*state == 0) return 0;
  qx::error::CollapseToFatal();
  return 0;
}

}  // extern "C"
