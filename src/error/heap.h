// The runtime heap as the allocator sees it, with a fault-injection seam.
//
// Every request the library makes of the runtime heap passes through these four
// calls. Tests arm the seam to make the n-th request from now fail, which
// drives each family's NO_MEMORY and trace paths; it is not part of the public
// interface. The calls are inline so that a disarmed seam costs one counter
// increment and one predictable branch on the allocator's plain path.
#ifndef QXBASE_ERROR_HEAP_H
#define QXBASE_ERROR_HEAP_H

#include <cstddef>
#include <cstdlib>

namespace qx::heap {

namespace detail {
extern unsigned long g_requests;
extern unsigned long g_countdown;  // 0 = disarmed
// Counts the request down once armed; true when it must fail.
bool RefuseArmed();
inline bool Refuse() {
  ++g_requests;
  return __builtin_expect(g_countdown != 0, 0) && RefuseArmed();
}
}  // namespace detail

inline void *Malloc(std::size_t size) {
  return detail::Refuse() ? nullptr : std::malloc(size);
}
inline void *Calloc(std::size_t count, std::size_t size) {
  return detail::Refuse() ? nullptr : std::calloc(count, size);
}
inline void *Realloc(void *ptr, std::size_t size) {
  return detail::Refuse() ? nullptr : std::realloc(ptr, size);
}
inline void Free(void *ptr) {
  std::free(ptr);
}

// ---- Fault injection, for tests ----------------------------------------
// Makes the n-th request from now fail (1 = the next one). With `sticky`, that
// request and every later one fail until ClearFailure. n = 0 disarms.
void FailNth(unsigned long n, bool sticky = false);
void ClearFailure();
// Number of requests made so far (failed ones included).
unsigned long RequestCount();
// Number of requests refused by the seam so far.
unsigned long InjectedFailures();

}  // namespace qx::heap

#endif  // QXBASE_ERROR_HEAP_H
