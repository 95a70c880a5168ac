// Debug mode of the allocator: guarded blocks on a live list, their checks,
// and the settings that steer them. utl_mem.cpp holds the public entry points
// and dispatches to these once debug mode is on.
#ifndef QXBASE_ERROR_MEM_DEBUG_H
#define QXBASE_ERROR_MEM_DEBUG_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "utl_mem.h"

namespace qx::mem {

// Header of a debug block; the user data follows it directly and the 4-byte
// trailer follows the user data. Natural alignment gives the documented
// layouts: 48 bytes on LP64 (4 bytes of padding after the head guard, so the
// user data keeps the runtime heap's 16-byte alignment) and 32 on ILP32.
struct BlockHeader {
  std::uint32_t head_guard;
  BlockHeader *older;
  BlockHeader *newer;
  const char *file;
  std::int32_t line;
  std::uint32_t size;
  std::uint32_t sequence;
  std::uint32_t inner_guard;
};
static_assert(offsetof(BlockHeader, inner_guard) + sizeof(std::uint32_t) == sizeof(BlockHeader),
              "the inner guard must sit directly before the user data");
static_assert(sizeof(void *) != 8 || sizeof(BlockHeader) == 48, "64-bit header is 48 bytes");
static_assert(sizeof(void *) != 4 || sizeof(BlockHeader) == 32, "32-bit header is 32 bytes");

inline constexpr std::size_t kTrailerSize = 4;

// Process-wide allocator state, zero at load except where initialised.
struct DebugState {
  bool on = false;
  BlockHeader *newest = nullptr;
  unsigned int allocated = 0;
  unsigned int max_allocated = 0;
  unsigned int sequence = 0;  // debug allocations made so far
  int frequency = 1000;
  int countdown = 0;
  unsigned int notify_threshold = 0;
  char *fail_file = nullptr;  // our own copy, allocated through the allocator
  unsigned int fail_line = 0;
  unsigned int fail_sequence = 0;  // 0 = none
  bool in_failure = false;
  bool in_notification = false;
  UTL_DMEM_PRINT_FUNC print = std::printf;
};

extern DebugState g_state;

// Writes an announcement through the print function in one call:
// "\n\n", the message, "\n".
#define QX_MEM_ANNOUNCE(format, ...) \
  ::qx::mem::g_state.print("\n\n" format "\n" __VA_OPT__(, ) __VA_ARGS__)

// Writes code and a line end to standard output, then sends SIGQUIT to the
// process. Returns when the signal is caught or ignored.
void ReportFault(const char *code);

// The core of UTL_DMEM_ALLOC, _CALLOC and the allocating half of _REALLOC:
// failure request, notification, periodic check, then the guarded block.
// Sizes beyond 32 bits cannot be obtained and take the MEM_NOT_ENOUGH path.
void *Allocate(std::size_t size, const char *file, int line);
// The core of UTL_DMEM_FREE and UTL_MEM_FREE_2D_ARRAY in debug mode.
void Release(void *user);
// The core of UTL_DMEM_REALLOC and UTL_DMEM_RECALLOC in debug mode.
void *Resize(void *user, std::size_t size, const char *file, int line);
// Checks every live block, newest first.
void CheckAllBlocks();
// Forgets a pending file-and-line failure request and frees its copy of the
// file name (UTL_DMEM_FAIL replacing it, or the failure being raised).
void DropFileRequest();

inline constexpr std::uint32_t kHeadGuard = 0xBBBBBBBBu;
inline constexpr std::uint32_t kInnerGuard = 0xCCCCCCCCu;

// Calls visit(header) for each live block, newest first, while it returns
// true. The walk ends after a block whose guard words are damaged: its links
// cannot be trusted.
template <typename Visit>
void ForEachLiveBlock(Visit visit) {
  for (BlockHeader *block = g_state.newest; block != nullptr; block = block->older) {
    if (!visit(*block)) return;
    if (block->head_guard != kHeadGuard || block->inner_guard != kInnerGuard) return;
  }
}

}  // namespace qx::mem

#endif  // QXBASE_ERROR_MEM_DEBUG_H
