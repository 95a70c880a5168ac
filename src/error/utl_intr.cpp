// utl_intr: the break flag and the signal dispositions.
//
// The handlers run asynchronously, so they touch only the flag (a volatile
// sig_atomic_t written whole), the callback pointer and the terminal layer's
// write(2)-based output; errno is preserved across them. The three signal
// functions are thin wrappers over sigaction.
#include "utl_intr.h"

#include <signal.h>

#include <cerrno>

#include "common/error_record.h"
#include "process/terminal.h"

namespace {

volatile sig_atomic_t g_pending = 0;
UTL_INTR_CALLBACK_FUNC volatile g_callback = nullptr;
int g_timeout = 0;

constexpr qx::ErrorRecord kUserCancel = {"UTL", "INTR", qx::kWarning, "UIMS_USER_CANCEL"};

// Steps shared by both handlers: tell the user, then raise the flag.
void AnnounceBreak() {
  qx::terminal::PutText("** CANCEL **\a\n");
  qx::terminal::Flush();
  qx::terminal::Control(qx::terminal::kBreakControl);
  g_pending = 1;
}

void RunCallback() {
  const UTL_INTR_CALLBACK_FUNC callback = g_callback;
  if (callback != nullptr) callback();
}

// Sets sig's handler persistently (no reset on delivery), restarting
// interrupted system calls. Returns false for an invalid signal.
bool Install(int sig, UTL_SIGNAL_HANDLER handler, UTL_SIGNAL_HANDLER *previous) {
  struct sigaction action = {};
  struct sigaction old = {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  if (sigaction(sig, &action, &old) != 0) return false;
  if (previous != nullptr) *previous = old.sa_handler;
  return true;
}

}  // namespace

extern "C" {

int UTL_INTR_PENDING(void) {
  return g_pending;
}
void UTL_INTR_CLEAR(void) {
  g_pending = 0;
}
void UTL_INTR_SIMULATE(void) {
  g_pending = 1;
}

UTL_INTR_CALLBACK_FUNC UTL_INTR_CALLBACK(UTL_INTR_CALLBACK_FUNC callback) {
  const UTL_INTR_CALLBACK_FUNC previous = g_callback;
  g_callback = callback;
  return previous;
}

int UTL_INTR_SET_TIMEOUT(int timeout) {
  g_timeout = timeout;
  return g_timeout;
}

int UTL_INTR_SET_ERROR(const char *text) {
  qx::RecordError(kUserCancel, "UTL_INTR_SET_ERROR");
  return UTL_ERROR_ADD_TRACE(text);
}

void UTL_INTR_CATCH(int /*signal_number*/) {
  const int saved_errno = errno;
  AnnounceBreak();
  RunCallback();
  qx::terminal::Control(qx::terminal::kBreakControl);
  errno = saved_errno;
}

int UTL_INTR_CATCH_NT(int event) {
  const int saved_errno = errno;
  if (event == 0) AnnounceBreak();
  RunCallback();
  errno = saved_errno;
  return 1;
}

int UTL_SIGNAL_BLOCK(int sig) {
  Install(sig, SIG_IGN, nullptr);
  return 1;
}

int UTL_SIGNAL_UNBLOCK(int sig) {
  Install(sig, SIG_DFL, nullptr);
  return 1;
}

UTL_SIGNAL_HANDLER UTL_SIGNAL_SIGNAL(int sig, UTL_SIGNAL_HANDLER handler) {
  UTL_SIGNAL_HANDLER previous = SIG_ERR;
  return Install(sig, handler, &previous) ? previous : SIG_ERR;
}

}  // extern "C"
