// The runtime heap as the allocator sees it, with a fault-injection seam.
//
// Every request the library makes of the runtime heap passes through these four
// calls. Tests arm the seam to make the n-th request from now fail, which
// drives each family's NO_MEMORY and trace paths; it is not part of the public
// interface. A disarmed seam costs one predictable branch per request.
#ifndef QXBASE_ERROR_HEAP_H
#define QXBASE_ERROR_HEAP_H

#include <cstddef>

namespace qx::heap {

void *Malloc(std::size_t size);
void *Calloc(std::size_t count, std::size_t size);
void *Realloc(void *ptr, std::size_t size);
void Free(void *ptr);

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
