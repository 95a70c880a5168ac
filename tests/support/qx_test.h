// Shared test support: capturing what the library prints, reading the error
// stack, and driving allocation failures.
#ifndef QXBASE_TESTS_QX_TEST_H
#define QXBASE_TESTS_QX_TEST_H

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "error/error_stack.h"
#include "error/heap.h"

namespace qxtest {

// Redirects a standard stream (stdout or stderr) into a temporary file for its
// lifetime; Text() returns every byte written so far.
class CaptureStream {
 public:
  explicit CaptureStream(std::FILE *stream) : stream_(stream), fd_(fileno(stream)) {
    std::fflush(stream_);
    saved_ = dup(fd_);
    file_ = std::tmpfile();
    dup2(fileno(file_), fd_);
  }
  ~CaptureStream() { Restore(); }
  CaptureStream(const CaptureStream &) = delete;
  CaptureStream &operator=(const CaptureStream &) = delete;

  std::string Text() {
    std::fflush(stream_);
    std::string text;
    std::rewind(file_);
    char buf[4096];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, file_)) > 0)
      text.append(buf, n);
    return text;
  }

 private:
  void Restore() {
    if (saved_ < 0) return;
    std::fflush(stream_);
    dup2(saved_, fd_);
    close(saved_);
    saved_ = -1;
    std::fclose(file_);
  }
  std::FILE *stream_;
  int fd_;
  int saved_ = -1;
  std::FILE *file_ = nullptr;
};

// A view of one error entry with its trace lines.
struct ErrorView {
  std::string product, facility, severity, code, message;
  bool is_set = false;
  std::vector<std::string> traces;
};

inline ErrorView Entry(int e) {
  const auto &entry = qx::error::g_stack.entries[e];
  ErrorView view{entry.product,
                 entry.facility,
                 entry.severity,
                 entry.code,
                 entry.message,
                 entry.is_set != 0,
                 {}};
  for (int i = 0; i < entry.trace_count; ++i)
    view.traces.emplace_back(qx::error::g_stack.traces[entry.first_trace + i]);
  return view;
}

inline ErrorView TopError() {
  return Entry(qx::error::g_stack.top);
}
inline int StackTop() {
  return qx::error::g_stack.top;
}
inline int TraceFill() {
  return qx::error::g_stack.fill;
}

// "PRODUCT/FACILITY/SEVERITY/CODE" of the top error, or "" when none is set.
inline std::string TopIdentity() {
  ErrorView top = TopError();
  if (!top.is_set) return "";
  return top.product + "/" + top.facility + "/" + top.severity + "/" + top.code;
}

// Arms the heap seam so that the n-th runtime request from now fails; disarms
// when it goes out of scope.
class FailAllocation {
 public:
  explicit FailAllocation(unsigned long nth, bool sticky = false) {
    qx::heap::FailNth(nth, sticky);
  }
  ~FailAllocation() { qx::heap::ClearFailure(); }
};

}  // namespace qxtest

#endif  // QXBASE_TESTS_QX_TEST_H
