// Runtime heap access with the test seam described in heap.h. The countdown is
// 0 when disarmed; it counts down to the request that must fail.
#include "error/heap.h"

#include <cstdlib>

namespace qx::heap {
namespace {

unsigned long g_requests = 0;
unsigned long g_countdown = 0;
unsigned long g_injected = 0;
bool g_sticky = false;

// True when the seam refuses this request.
inline bool Refuse() {
  ++g_requests;
  if (g_countdown == 0) return false;
  if (g_countdown > 1) {
    --g_countdown;
    return false;
  }
  if (!g_sticky) g_countdown = 0;
  ++g_injected;
  return true;
}

}  // namespace

void *Malloc(std::size_t size) {
  return Refuse() ? nullptr : std::malloc(size);
}
void *Calloc(std::size_t count, std::size_t size) {
  return Refuse() ? nullptr : std::calloc(count, size);
}
void *Realloc(void *ptr, std::size_t size) {
  return Refuse() ? nullptr : std::realloc(ptr, size);
}
void Free(void *ptr) {
  std::free(ptr);
}

void FailNth(unsigned long n, bool sticky) {
  g_countdown = n;
  g_sticky = sticky;
}
void ClearFailure() {
  g_countdown = 0;
  g_sticky = false;
}
unsigned long RequestCount() {
  return g_requests;
}
unsigned long InjectedFailures() {
  return g_injected;
}

}  // namespace qx::heap
