// The process-wide error stack shared by the recording side (utl_error.cpp)
// and the printing side (utl_errmsg.cpp).
//
// Nine entries and a pool of 23 trace lines, all static and zero at load (the
// empty stack). Entry e owns pool lines first_trace .. first_trace +
// trace_count - 1; new lines always go to the entry at `top`. A barrier entry
// marks where a PUSH began; unwinding stops there.
#ifndef QXBASE_ERROR_ERROR_STACK_H
#define QXBASE_ERROR_ERROR_STACK_H

namespace qx::error {

inline constexpr int kEntries = 9;
inline constexpr int kLastEntry = kEntries - 1;
inline constexpr int kTraceLines = 23;
inline constexpr int kTraceWidth = 80;  // 79 characters and a terminator

struct Entry {
  char product[32];
  char facility[32];
  char severity[16];
  char code[32];
  int is_set;
  int trace_count;
  int barrier;
  int first_trace;
  char message[81];
};

struct Stack {
  Entry entries[kEntries];
  int top;
  char traces[kTraceLines][kTraceWidth];
  int fill;  // trace lines in use
  int overflow;
};

extern Stack g_stack;

inline Entry &TopEntry() {
  return g_stack.entries[g_stack.top];
}

// Empties every entry from `top` down to and including the nearest barrier
// (or entry 0), releases the trace lines they owned, and leaves `top` at the
// barrier. The common core of CLEAR, POP, PRINT and MESSAGE.
void UnwindToBarrier();

// Empties one entry: product, facility, code, is_set, trace_count and
// first_trace. Severity, message and barrier stay as they were.
void EmptyEntry(Entry &entry);

// Appends a trace line to the top entry, recording the program-error record
// first when no error is set. Returns the pool index used or the fill count.
int AppendTrace(const char *text);

}  // namespace qx::error

#endif  // QXBASE_ERROR_ERROR_STACK_H
