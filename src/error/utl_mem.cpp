// utl_mem: the allocator every family allocates through.
//
// Plain mode (the default) is one runtime-heap request per call, through the
// heap seam of heap.h; a refused request records UTL / MEM / FATAL / NO_MEMORY
// under the routine's historical name and yields NULL. A request for 0 bytes
// asks the heap for 1 so that every success is a unique pointer.
//
// Once debug mode is on, every entry point hands over to mem_debug.cpp, whose
// failures are reported on standard output with SIGQUIT rather than recorded.
// This file also holds the settings, the block listing and the counters; the
// announcements go through the replaceable print function.
#include "utl_mem.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "common/error_record.h"
#include "common/fixed_text.h"
#include "error/heap.h"
#include "error/mem_debug.h"
#include "utl_intr.h"

namespace {

using qx::mem::g_state;

constexpr qx::ErrorRecord kNoMemory = {"UTL", "MEM", qx::kFatal, "NO_MEMORY"};
constexpr qx::ErrorRecord kSetFreqOff = {"UTL", "MEM", qx::kFatal, "SET_FREQ"};
constexpr qx::ErrorRecord kPrintOff = {"UTL", "MEM", qx::kFatal, "MEM_PRINT"};
constexpr const char *kTag = "utl_mem";

inline std::size_t AtLeastOne(unsigned int size) {
  return size == 0 ? 1 : size;
}

// The shared core of UTL_DMEM_REALLOC and UTL_DMEM_RECALLOC, which differ only
// in the routine named by a plain-mode failure.
void *ResizeBlock(void *ptr, unsigned int size, const char *file, int line, const char *routine) {
  if (g_state.on) return qx::mem::Resize(ptr, size, file, line);
  void *block = qx::heap::Realloc(ptr, AtLeastOne(size));
  if (block == nullptr) qx::RecordError(kNoMemory, routine);
  return block;
}

// Where a block listing goes: an opened file, or the print function.
class Listing {
 public:
  explicit Listing(std::FILE *file) : file_(file) {}
  ~Listing() {
    if (file_ != nullptr) std::fclose(file_);
  }
  Listing(const Listing &) = delete;
  Listing &operator=(const Listing &) = delete;

  void OutOfRange(unsigned int first) {
    Line("The sequence number %u you requested is out of range.\n", first);
    Line("The next available sequence number is %u.\n", g_state.sequence + 1);
  }

  // The filtered listing through the print function historically used %d for
  // line and size; kept so that the printed text stays the same.
  void Block(const qx::mem::BlockHeader &block, bool filtered) {
    const char *file = block.file != nullptr ? block.file : "(null)";
    if (file_ == nullptr && filtered)
      Line("Filename %s line %d size %d sequence number %u\n", file, block.line,
           static_cast<int>(block.size), block.sequence);
    else
      Line("Filename %s line %u size %u sequence number %u\n", file,
           static_cast<unsigned int>(block.line), block.size, block.sequence);
  }

 private:
  template <typename... Args>
  void Line(const char *format, Args... args) {
    if (file_ != nullptr)
      std::fprintf(file_, format, args...);
    else
      g_state.print(format, args...);
  }
  std::FILE *file_;
};

bool Selected(const qx::mem::BlockHeader &block, const char *filter, unsigned int first,
              unsigned int last) {
  if (block.sequence < first || (last != 0 && block.sequence > last)) return false;
  return filter == nullptr || (block.file != nullptr && std::strcmp(block.file, filter) == 0);
}

}  // namespace

extern "C" {

void *UTL_DMEM_ALLOC(unsigned int size, const char *file, int line) {
  if (g_state.on) return qx::mem::Allocate(size, file, line);
  void *block = qx::heap::Malloc(AtLeastOne(size));
  if (block == nullptr) qx::RecordError(kNoMemory, "UTL_MEM_ALLOC");
  return block;
}

void *UTL_DMEM_CALLOC(unsigned int count, unsigned int size, const char *file, int line) {
  if (g_state.on) {
    const unsigned long long bytes = static_cast<unsigned long long>(count) * size;
    // A product beyond 32 bits must reach Allocate unshortened, to be refused.
    const std::size_t request = bytes > 0xFFFFFFFFull ? SIZE_MAX : static_cast<std::size_t>(bytes);
    void *block = qx::mem::Allocate(request, file, line);
    if (block == nullptr) return qx::TraceAndFail<void *>("UTL_MEM_CALLOC", nullptr);
    std::memset(block, 0, bytes);
    return block;
  }
  void *block = (count == 0 || size == 0) ? qx::heap::Calloc(1, 1) : qx::heap::Calloc(count, size);
  if (block == nullptr) qx::RecordError(kNoMemory, "UTL_MEM_CALLOC");
  return block;
}

void *UTL_DMEM_REALLOC(void *ptr, unsigned int size, const char *file, int line) {
  return ResizeBlock(ptr, size, file, line, "UTL_MEM_REALLOC (0)");
}

void *UTL_DMEM_RECALLOC(void *ptr, unsigned int size, const char *file, int line) {
  return ResizeBlock(ptr, size, file, line, "UTL_MEM_RECALLOC");
}

int UTL_DMEM_FREE(void *ptr, const char * /*file*/, int /*line*/) {
  if (g_state.on)
    qx::mem::Release(ptr);
  else
    qx::heap::Free(ptr);  // the runtime accepts NULL
  return 1;
}

int UTL_MEM_FREE_2D_ARRAY(int rows, void **array) {
  if (array != nullptr)
    for (int row = 0; row < rows; ++row)
      if (array[row] != nullptr) UTL_DMEM_FREE(array[row], kTag, __LINE__);
  UTL_DMEM_FREE(array, kTag, __LINE__);
  return 1;
}

int UTL_DMEM_SET_DEBUG(void) {
  g_state.on = true;
  QX_MEM_ANNOUNCE("IMPORTANT: Memory debugging has been activated.\n");
  return 1;
}

void UTL_DMEM_SET_FREQ(int n) {
  if (!g_state.on) {
    qx::RecordError(kSetFreqOff, "UTL_DMEM_SET_FREQ");
    return;
  }
  g_state.frequency = n;
  g_state.countdown = 0;
  QX_MEM_ANNOUNCE("The memory heap will be checked every %d passes. \n", n);
}

void UTL_DMEM_NOTIFY(unsigned int bytes) {
  g_state.notify_threshold = bytes;
  QX_MEM_ANNOUNCE("Notification set for memory allocations of \"%u\" or more bytes.\n", bytes);
}

void UTL_DMEM_FAIL(const char *file, unsigned int number) {
  qx::mem::DropFileRequest();
  if (file == nullptr) {
    g_state.fail_sequence = number;
    QX_MEM_ANNOUNCE("Intentional failure set for \"%u\" sequence number allocation.\n", number);
    return;
  }
  const std::size_t length = std::strlen(file);
  auto *copy =
      static_cast<char *>(UTL_DMEM_ALLOC(static_cast<unsigned int>(length + 1), kTag, __LINE__));
  if (copy == nullptr) return;
  std::memcpy(copy, file, length + 1);
  g_state.fail_file = copy;
  g_state.fail_line = number;
  QX_MEM_ANNOUNCE("Intentional failure set for \"%s\" line %u.\n", copy, number);
}

void UTL_DMEM_CHK_HEAP_NOW(void) {
  qx::mem::CheckAllBlocks();
}

int UTL_DMEM_MPA(const char *path, const char *filter, unsigned int first, unsigned int last) {
  if (!g_state.on) return qx::Fail(kPrintOff, "UTL_DMEM_MPA", 0);
  std::FILE *file = nullptr;
  if (path != nullptr) {
    file = std::fopen(path, "w");
    if (file == nullptr) {
      QX_MEM_ANNOUNCE("Sorry, couldn't open file %s./n", path);
      return 0;
    }
  }
  Listing listing(file);
  if (first > g_state.sequence) listing.OutOfRange(first);
  qx::mem::ForEachLiveBlock([&](const qx::mem::BlockHeader &block) {
    if (UTL_INTR_PENDING()) return false;
    if (Selected(block, filter, first, last)) listing.Block(block, filter != nullptr);
    return true;
  });
  return 1;
}

unsigned int UTL_DMEM_ALLOCATED_BYTES(void) {
  return g_state.allocated;
}
unsigned int UTL_DMEM_MAX_ALLOCATED_BYTES(void) {
  return g_state.max_allocated;
}
unsigned int UTL_DMEM_NEXT_NUM(void) {
  return g_state.sequence + 1;
}

UTL_DMEM_PRINT_FUNC UTL_DMEM_INITIALIZE(UTL_DMEM_PRINT_FUNC print) {
  if (print != nullptr) g_state.print = print;
  return print;
}

const char *UTL_MEM_GET_VERSION(void) {
  // Refilled on every call, so a caller that wrote into the buffer gets the
  // text back.
  static char version[32];
  qx::CopyText(version, "Sep 23 2011");
  return version;
}

}  // extern "C"
