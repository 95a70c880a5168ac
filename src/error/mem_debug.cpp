// Debug mode of the allocator: guarded blocks, the live list and its checks.
//
// A debug block is one runtime request of header + size + 4 bytes. The header
// (mem_debug.h) is framed by two guard words; the four trailer bytes follow
// the user data. Live blocks form a doubly linked list whose head is the
// newest block. The checks read guard words through byte copies, because a
// pointer handed to a free may be anything (a plain block from before debug
// mode, a block freed already, a misaligned address).
//
// A freed block is filled with 0x7A and parked among the most recently freed
// before it goes back to the runtime heap: the runtime writes its own links
// into freed memory, which would turn a second free into an unrecognisable
// "bad pointer" instead of MEM_BLOCK_PREVIOUSLY_FREE.
//
// Faults are reported and the process is sent SIGQUIT; when the application
// survives that signal we carry on, but never follow or rewrite the links of a
// block whose guard words are damaged.
#include "error/mem_debug.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include "error/heap.h"

namespace qx::mem {

DebugState g_state;

namespace {

constexpr unsigned char kTrailerByte = 0xDD;
constexpr unsigned char kFreshByte = 0xEE;
constexpr unsigned char kFreedByte = 0x7A;
constexpr std::size_t kHeaderSize = sizeof(BlockHeader);
constexpr const char *kTag = "utl_mem";

constexpr int kParkedSlots = 64;
constexpr std::size_t kLargestParked = 64 * 1024;
unsigned char *g_parked[kParkedSlots];
int g_next_parked = 0;

unsigned char *StartOf(void *user) {
  return static_cast<unsigned char *>(user) - kHeaderSize;
}
unsigned char *UserOf(BlockHeader *block) {
  return reinterpret_cast<unsigned char *>(block + 1);
}
std::size_t TotalSize(std::size_t size) {
  return kHeaderSize + size + kTrailerSize;
}

std::uint32_t LoadWord(const unsigned char *at) {
  std::uint32_t word;
  std::memcpy(&word, at, sizeof word);
  return word;
}

bool AllBytesAre(const unsigned char *at, std::size_t count, unsigned char value) {
  return std::all_of(at, at + count, [value](unsigned char c) { return c == value; });
}

// What the guard words of a block say; `start` is the block's first byte.
struct Guards {
  bool head_ok;
  bool inner_ok;
  bool trusted() const { return head_ok && inner_ok; }
};

Guards ReadGuards(const unsigned char *start) {
  return {LoadWord(start + offsetof(BlockHeader, head_guard)) == kHeadGuard,
          LoadWord(start + offsetof(BlockHeader, inner_guard)) == kInnerGuard};
}

// Only meaningful when the inner guard is intact: the size word sits between
// the guards and is trusted only then.
bool TrailerIntact(const unsigned char *start) {
  const std::uint32_t size = LoadWord(start + offsetof(BlockHeader, size));
  return AllBytesAre(start + kHeaderSize + size, kTrailerSize, kTrailerByte);
}

// The check of one block before it is freed or resized. Returns whether its
// header can be trusted (links and size).
bool CheckBlock(void *user) {
  const unsigned char *start = StartOf(user);
  const Guards guards = ReadGuards(start);
  if (!guards.head_ok) {
    if (guards.inner_ok)
      ReportFault("MEM_BLOCK_PREVIOUS_OVERRUN");
    else if (AllBytesAre(start, kHeaderSize, kFreedByte))
      ReportFault("MEM_BLOCK_PREVIOUSLY_FREE");
    else
      ReportFault("MEM_BLOCK_BAD_POINTER");
  }
  if (!guards.inner_ok)
    ReportFault("MEM_BLOCK_UNDERRUN");
  else if (!TrailerIntact(start))
    ReportFault("MEM_BLOCK_OVERRUN");
  return guards.trusted();
}

// One allocation or free: every frequency-th pass checks the whole list.
void CountPass() {
  if (g_state.frequency == 0) return;
  if (--g_state.countdown > 0) return;
  g_state.countdown = g_state.frequency;
  CheckAllBlocks();
}

const char *Shown(const char *text) {
  return text != nullptr ? text : "(null)";
}

// Raises a pending intentional failure at this allocation. The flag keeps the
// announcement and the release of the request's own copy from re-entering.
void RaiseRequestedFailure(const char *file, int line) {
  DebugState &s = g_state;
  if (s.in_failure) return;
  if (s.fail_file != nullptr && file != nullptr && std::strcmp(file, s.fail_file) == 0 &&
      static_cast<unsigned int>(line) == s.fail_line) {
    s.in_failure = true;
    QX_MEM_ANNOUNCE("Intentional failure occurring in \"%s\" line %u.\n", file,
                    static_cast<unsigned int>(line));
    DropFileRequest();
  } else if (s.fail_sequence != 0 && s.fail_sequence == s.sequence + 1) {
    s.in_failure = true;
    QX_MEM_ANNOUNCE("Intentional failure occurring in \"%s\" line %u sequence number %u.\n",
                    Shown(file), static_cast<unsigned int>(line), s.fail_sequence);
    s.fail_sequence = 0;
  } else {
    return;
  }
  ReportFault("INTENTIONAL_FAILURE");
  s.in_failure = false;
}

void NotifyLargeAllocation(std::size_t size, const char *file, int line) {
  DebugState &s = g_state;
  if (s.notify_threshold == 0 || size < s.notify_threshold || s.in_notification) return;
  s.in_notification = true;
  QX_MEM_ANNOUNCE("NOTIFICATION:  File %s line %d allocated %d bytes.\n", Shown(file), line,
                  static_cast<int>(size));
  s.in_notification = false;
}

void Link(BlockHeader *block) {
  block->older = g_state.newest;
  block->newer = nullptr;
  if (g_state.newest != nullptr) g_state.newest->newer = block;
  g_state.newest = block;
}

void Unlink(BlockHeader *block) {
  if (block->newer != nullptr)
    block->newer->older = block->older;
  else
    g_state.newest = block->older;
  if (block->older != nullptr) block->older->newer = block->newer;
}

// Fills a freed block and parks it; the oldest parked block goes back to the
// runtime heap when its slot is needed.
void Retire(unsigned char *start, std::size_t total) {
  std::memset(start, kFreedByte, total);
  if (total > kLargestParked) {
    heap::Free(start);
    return;
  }
  unsigned char *&slot = g_parked[g_next_parked];
  g_next_parked = (g_next_parked + 1) % kParkedSlots;
  if (slot != nullptr) heap::Free(slot);
  slot = start;
}

}  // namespace

void ReportFault(const char *code) {
  std::fputs(code, stdout);
  std::fputc('\n', stdout);
  // The signal usually ends the process: what was written must be out first.
  std::fflush(stdout);
  kill(getpid(), SIGQUIT);
}

void *Allocate(std::size_t size, const char *file, int line) {
  DebugState &s = g_state;
  RaiseRequestedFailure(file, line);
  NotifyLargeAllocation(size, file, line);
  CountPass();
  const bool representable = size <= std::numeric_limits<std::uint32_t>::max() &&
                             size <= std::numeric_limits<std::size_t>::max() - TotalSize(0);
  auto *start =
      representable ? static_cast<unsigned char *>(heap::Malloc(TotalSize(size))) : nullptr;
  if (start == nullptr) {
    ReportFault("MEM_NOT_ENOUGH");
    return nullptr;
  }
  auto *block = reinterpret_cast<BlockHeader *>(start);
  block->head_guard = kHeadGuard;
  Link(block);
  block->file = file;
  block->line = line;
  block->size = static_cast<std::uint32_t>(size);
  block->sequence = ++s.sequence;
  block->inner_guard = kInnerGuard;
  unsigned char *user = UserOf(block);
  std::memset(user, kFreshByte, size);
  std::memset(user + size, kTrailerByte, kTrailerSize);
  s.allocated += block->size;
  s.max_allocated = std::max(s.max_allocated, s.allocated);
  if (file == nullptr) ReportFault("FILE_NAME_IS_NIL_FOR_ALLOCATION");
  return user;
}

void Release(void *user) {
  if (user == nullptr) {
    CountPass();
    return;
  }
  const bool trusted = CheckBlock(user);
  CountPass();
  if (!trusted) return;
  auto *block = reinterpret_cast<BlockHeader *>(StartOf(user));
  const std::uint32_t size = block->size;
  Unlink(block);
  g_state.allocated -= size;
  Retire(StartOf(user), TotalSize(size));
}

void *Resize(void *user, std::size_t size, const char *file, int line) {
  if (user == nullptr) return Allocate(size, file, line);
  const bool trusted = CheckBlock(user);
  void *fresh = Allocate(size, file, line);
  if (fresh == nullptr) return nullptr;
  if (trusted) {
    const std::size_t old_size = reinterpret_cast<BlockHeader *>(StartOf(user))->size;
    std::memcpy(fresh, user, std::min(old_size, size));
  }
  Release(user);
  return fresh;
}

void DropFileRequest() {
  char *copy = g_state.fail_file;
  g_state.fail_file = nullptr;
  if (copy != nullptr) UTL_DMEM_FREE(copy, kTag, __LINE__);
}

void CheckAllBlocks() {
  ForEachLiveBlock([](BlockHeader &block) {
    const unsigned char *start = reinterpret_cast<const unsigned char *>(&block);
    const Guards guards = ReadGuards(start);
    if (!guards.head_ok) ReportFault("MEM_HEAP_PREVIOUS_OVERRUN");
    if (!guards.inner_ok)
      ReportFault("MEM_HEAP_UNDERRUN");
    else if (!TrailerIntact(start))
      ReportFault("MEM_HEAP_OVERRUN");
    return true;
  });
}

}  // namespace qx::mem
