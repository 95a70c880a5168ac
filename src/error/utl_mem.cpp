// utl_mem: the allocator every family allocates through.
//
// Plain mode (the default) is one runtime-heap request per call, through the
// heap seam of heap.h; a refused request records UTL / MEM / FATAL / NO_MEMORY
// under the routine's historical name and yields NULL. A request for 0 bytes
// asks the heap for 1 so that every success is a unique pointer.
#include "utl_mem.h"

#include "common/error_record.h"
#include "error/heap.h"

namespace {

constexpr qx::ErrorRecord kNoMemory = {"UTL", "MEM", qx::kFatal, "NO_MEMORY"};

inline std::size_t AtLeastOne(unsigned int size) {
  return size == 0 ? 1 : size;
}

}  // namespace

extern "C" {

void *UTL_DMEM_ALLOC(unsigned int size, const char * /*file*/, int /*line*/) {
  void *block = qx::heap::Malloc(AtLeastOne(size));
  if (block == nullptr) qx::RecordError(kNoMemory, "UTL_MEM_ALLOC");
  return block;
}

void *UTL_DMEM_CALLOC(unsigned int count, unsigned int size, const char * /*file*/, int /*line*/) {
  void *block = (count == 0 || size == 0) ? qx::heap::Calloc(1, 1) : qx::heap::Calloc(count, size);
  if (block == nullptr) qx::RecordError(kNoMemory, "UTL_MEM_CALLOC");
  return block;
}

void *UTL_DMEM_REALLOC(void *ptr, unsigned int size, const char * /*file*/, int /*line*/) {
  void *block = qx::heap::Realloc(ptr, AtLeastOne(size));
  if (block == nullptr) qx::RecordError(kNoMemory, "UTL_MEM_REALLOC (0)");
  return block;
}

int UTL_DMEM_FREE(void *ptr, const char * /*file*/, int /*line*/) {
  if (ptr != nullptr) qx::heap::Free(ptr);
  return 1;
}

}  // extern "C"
