// Runtime heap access with the test seam described in heap.h. The countdown is
// 0 when disarmed; it counts down to the request that must fail.
#include "error/heap.h"

namespace qx::heap {

namespace detail {

unsigned long g_requests = 0;
unsigned long g_countdown = 0;

}  // namespace detail

namespace {

unsigned long g_injected = 0;
bool g_sticky = false;

}  // namespace

bool detail::RefuseArmed() {
  if (g_countdown > 1) {
    --g_countdown;
    return false;
  }
  if (!g_sticky) g_countdown = 0;
  ++g_injected;
  return true;
}

void FailNth(unsigned long n, bool sticky) {
  detail::g_countdown = n;
  g_sticky = sticky;
}
void ClearFailure() {
  detail::g_countdown = 0;
  g_sticky = false;
}
unsigned long RequestCount() {
  return detail::g_requests;
}
unsigned long InjectedFailures() {
  return g_injected;
}

}  // namespace qx::heap
