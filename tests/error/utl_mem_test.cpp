// The allocator in plain and debug mode; debug-mode faults send SIGQUIT.
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "qx_test.h"
#include "utl_error.h"
#include "utl_intr.h"
#include "utl_mem.h"

namespace {

// Linked in only with AddressSanitizer.
extern "C" void __asan_init() __attribute__((weak));

// A debug block's header begins with its head guard and ends with its inner guard.
constexpr std::ptrdiff_t kHeader = sizeof(void *) == 8 ? 48 : 32;
const std::string kActivated = "\n\nIMPORTANT: Memory debugging has been activated.\n\n";

unsigned char *Bytes(void *p) {
  return static_cast<unsigned char *>(p);
}
bool AllBytes(const unsigned char *at, std::ptrdiff_t n, unsigned char value) {
  return std::count(at, at + n, value) == n;
}
template <typename Run, typename... Args>
std::string Printed(Run run, Args... args) {
  qxtest::CaptureStream out(stdout);
  run(args...);
  return out.Text();
}
void *Free(void *p) {
  UTL_DMEM_FREE(p, "t", 3);
  return p;
}

TEST(PlainMode, ZeroBytesPrintFunctionAndFailureRecords) {
  static const std::tuple<const char *, bool (*)(void *), const char *> kCases[] = {
      {"UTL_MEM_ALLOC", [](void *) { return !UTL_DMEM_ALLOC(8, "t", 1); }, "NO_MEMORY"},
      {"UTL_MEM_CALLOC", [](void *) { return !UTL_DMEM_CALLOC(2, 8, "t", 1); }, "NO_MEMORY"},
      {"UTL_MEM_REALLOC (0)", [](void *p) { return !UTL_DMEM_REALLOC(p, 9, "t", 1); }, "NO_MEMORY"},
      {"UTL_MEM_RECALLOC", [](void *p) { return !UTL_DMEM_RECALLOC(p, 9, "t", 1); }, "NO_MEMORY"},
      {"UTL_MEM_ALLOC", [](void *) { return UTL_DMEM_FAIL("utl_demo", 40), true; }, "NO_MEMORY"},
      {"UTL_DMEM_SET_FREQ", [](void *) { return UTL_DMEM_SET_FREQ(5), true; }, "SET_FREQ"},
      {"UTL_DMEM_MPA", [](void *) { return !UTL_DMEM_MPA(nullptr, nullptr, 0, 0); }, "MEM_PRINT"},
  };
  void *zero[] = {UTL_DMEM_ALLOC(0, "t", 1), UTL_DMEM_CALLOC(0, 4, "t", 2),
                  UTL_DMEM_REALLOC(nullptr, 0, "t", 3), nullptr};
  EXPECT_EQ(std::set<void *>(std::begin(zero), std::end(zero)).size(), 4u);
  for (void *block : zero)
    EXPECT_EQ(UTL_DMEM_FREE(block, "t", 4), 1);
  EXPECT_STREQ(UTL_MEM_GET_VERSION(), "Sep 23 2011");
  EXPECT_EQ(UTL_DMEM_INITIALIZE(nullptr), nullptr);  // keeps printf
  EXPECT_EQ(Printed(UTL_DMEM_NOTIFY, 7),
            "\n\nNotification set for memory allocations of \"7\" or more bytes.\n\n");
  auto *old = static_cast<char *>(std::memcpy(UTL_DMEM_ALLOC(4, "t", 1), "abc", 4));
  for (const auto &[routine, call, code] : kCases) {
    qxtest::FailAllocation refuse(1);
    EXPECT_TRUE(call(old)) << routine;
    EXPECT_EQ(qxtest::TopIdentity(), std::string("UTL/MEM/FATAL/") + code);
    EXPECT_EQ(qxtest::TopError().traces, std::vector<std::string>{routine});
    UTL_ERROR_CLEAR();
  }
  EXPECT_STREQ(old, "abc");  // a refused resize leaves the block alone
  Free(old);
}

volatile sig_atomic_t g_quits = 0;

class DebugMode : public testing::Test {
 protected:
  void SetUp() override {
    signal(SIGQUIT, [](int) { g_quits = g_quits + 1; });
    EXPECT_EQ(Printed(UTL_DMEM_SET_DEBUG), kActivated);
  }
};

TEST_F(DebugMode, BlocksAreGuardedFilledResizedAndCounted) {
  static constexpr std::pair<unsigned int, unsigned int> kResizes[] = {{8, 20}, {20, 8}, {7, 0}};
  void *blocks[] = {UTL_DMEM_ALLOC(10, "t", 70), UTL_DMEM_ALLOC(0, "t", 71),
                    UTL_DMEM_ALLOC(0, "t", 72), UTL_DMEM_CALLOC(3, 5, "t", 73)};
  constexpr unsigned int kSizes[] = {10, 0, 0, 15};
  EXPECT_EQ(std::set<void *>(std::begin(blocks), std::end(blocks)).size(), 4u);
  for (unsigned int i = 0; i < 4; ++i) {
    unsigned char *user = Bytes(blocks[i]);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(user) % (2 * sizeof(void *)), 0u);
    EXPECT_TRUE(AllBytes(user - kHeader, 4, 0xBB) && AllBytes(user + kSizes[i], 4, 0xDD)) << i;
    EXPECT_TRUE(AllBytes(user - 4, 4, 0xCC) && AllBytes(user, kSizes[i], i == 3 ? 0 : 0xEE)) << i;
  }
  for (const auto &[from, to] : kResizes) {
    auto *old = Bytes(std::memset(UTL_DMEM_ALLOC(from, "t", 2), 0x11, from));
    const unsigned int kept = std::min(from, to);
    auto *fresh =
        Bytes(from % 2 ? UTL_DMEM_RECALLOC(old, to, "t", 3) : UTL_DMEM_REALLOC(old, to, "t", 3));
    EXPECT_TRUE(AllBytes(fresh, kept, 0x11) && AllBytes(fresh + kept, to - kept, 0xEE)) << from;
    Free(fresh);
    EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 25u);
  }
  EXPECT_EQ(UTL_DMEM_MAX_ALLOCATED_BYTES(), 53u);  // 25 + 20 + 8 during a resize
  // A freed block is filled before the runtime heap sees it again.
  EXPECT_TRUE(AllBytes(Bytes(Free(blocks[0])) - kHeader, kHeader + 10 + 4, 0x7A));
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 15u);
}

// A `size`-byte debug block with its byte `at` overwritten, and a newer sound block.
unsigned char *Damaged(unsigned int size, std::ptrdiff_t at) {
  auto *p = Bytes(UTL_DMEM_ALLOC(size, "t", 1));
  UTL_DMEM_ALLOC(4, "t", 2);
  p[at] = 0x55;
  return p;
}

struct Fault {
  const char *name, *code;
  void (*act)(void *plain);    // `plain` is a block from before debug mode
  const char *announced = "";  // printed before the code
};

// Each act is followed by a whole-list check and two allocations, the second at utl_demo line 40.
const Fault kFaults[] = {
    {"PastTheEnd", "MEM_BLOCK_OVERRUN", [](void *) { Free(Damaged(16, 16)); }},
    {"BeforeTheStart", "MEM_BLOCK_UNDERRUN", [](void *) { Free(Damaged(16, -1)); }},
    {"HeadGuard", "MEM_BLOCK_PREVIOUS_OVERRUN", [](void *) { Free(Damaged(8, -kHeader)); }},
    {"AtResize", "MEM_BLOCK_OVERRUN", [](void *) { UTL_DMEM_REALLOC(Damaged(5, 8), 50, "t", 3); }},
    {"FreedTwice", "MEM_BLOCK_PREVIOUSLY_FREE", [](void *) { Free(Free(Damaged(8, 0))); }},
    {"PlainBlock", "MEM_BLOCK_BAD_POINTER", [](void *plain) { Free(plain); }},
    {"ListTrailer", "MEM_HEAP_OVERRUN", [](void *) { Damaged(4, 5); }},
    {"ListInnerGuard", "MEM_HEAP_UNDERRUN", [](void *) { Damaged(4, -2); }},
    {"ListNeighbourRanOver", "MEM_HEAP_PREVIOUS_OVERRUN", [](void *) { Damaged(4, -kHeader); }},
    {"NoFile", "FILE_NAME_IS_NIL_FOR_ALLOCATION", [](void *) { UTL_DMEM_ALLOC(8, nullptr, 2); }},
    {"HeapRefuses", "MEM_NOT_ENOUGH", [](void *) { qx::heap::FailNth(1); }},
    {"Overflow", "MEM_NOT_ENOUGH", [](void *) { UTL_DMEM_CALLOC(0x10000, 0x10001, "t", 2); }},
    {"SequenceRequest", "INTENTIONAL_FAILURE", [](void *) { UTL_DMEM_FAIL(nullptr, 2); },
     "\n\nIntentional failure set for \"2\" sequence number allocation.\n\n"
     "\n\nIntentional failure occurring in \"utl_demo\" line 40 sequence number 2.\n\n"},
    {"FileRequest", "INTENTIONAL_FAILURE", [](void *) { UTL_DMEM_FAIL("utl_demo", 40); },
     "\n\nIntentional failure set for \"utl_demo\" line 40.\n\n"
     "\n\nIntentional failure occurring in \"utl_demo\" line 40.\n\n"},
};

// The child joins its standard output to the standard error compared here.
TEST_F(DebugMode, FreeTwoDArrayReleasesEveryRowAndTheArray) {
  const unsigned int before = UTL_DMEM_ALLOCATED_BYTES();
  auto **rows = static_cast<void **>(UTL_DMEM_ALLOC(3 * sizeof(void *), "t", 1));
  rows[0] = UTL_DMEM_ALLOC(8, "t", 2);
  rows[1] = nullptr;  // skipped
  rows[2] = UTL_DMEM_ALLOC(16, "t", 3);
  EXPECT_EQ(UTL_MEM_FREE_2D_ARRAY(3, rows), 1);
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), before);
  EXPECT_EQ(g_quits, 0);
}

TEST(DebugFault, EachWritesItsCodeAndStopsWithSigquit) {
  for (const Fault &fault : kFaults) {
    // AddressSanitizer would stop the read before a plain block.
    if (&__asan_init && fault.code == std::string("MEM_BLOCK_BAD_POINTER")) continue;
    const auto provoke = [&fault] {
      const rlimit no_core = {0, 0};
      setrlimit(RLIMIT_CORE, &no_core);
      dup2(STDERR_FILENO, STDOUT_FILENO);
      void *plain = UTL_DMEM_ALLOC(64, "t", 1);
      UTL_DMEM_SET_DEBUG();
      fault.act(plain);
      UTL_DMEM_CHK_HEAP_NOW();
      UTL_DMEM_ALLOC(8, "t", 2);
      UTL_DMEM_ALLOC(8, "utl_demo", 40);
    };
    EXPECT_EXIT(provoke(), testing::KilledBySignal(SIGQUIT),
                testing::Eq(kActivated + fault.announced + fault.code + "\n"))
        << fault.name;
  }
}

TEST_F(DebugMode, PeriodicCheckRunsEveryNthPass) {
  // Frequency, and how many of ten passes (allocation, null free, free, ...) check the list.
  static constexpr std::pair<int, int> kCases[] = {{0, 0}, {1, 10}, {4, 3}};
  EXPECT_EQ(Printed(UTL_DMEM_SET_FREQ, 4),
            "\n\nThe memory heap will be checked every 4 passes. \n\n");
  Damaged(4, 4);  // each check finds this
  for (const auto &[frequency, checks] : kCases) {
    UTL_DMEM_SET_FREQ(frequency);
    const int before = g_quits;
    void *block = nullptr;
    for (int pass = 1; pass <= 10; ++pass) {
      if (pass % 3 == 1) block = UTL_DMEM_ALLOC(2, "t", 2);
      if (pass % 3 != 1) Free(pass % 3 == 2 ? nullptr : block);
    }
    EXPECT_EQ(g_quits - before, checks) << frequency;
  }
}

TEST_F(DebugMode, IntentionalFailuresFireOnceAtTheirTarget) {
  // Allocations after a request for utl_demo line 40: file, line, whether it fires.
  static constexpr std::tuple<const char *, int, bool> kCalls[] = {
      {"utl_b", 2, false},       {"utl_demo", 41, false}, {"utl_dem", 40, false},
      {"utl_demo.c", 40, false}, {"utl_demo", 40, true},  {"utl_demo", 40, false}};
  UTL_DMEM_FAIL("utl_b", 2);
  UTL_DMEM_FAIL(nullptr, UTL_DMEM_NEXT_NUM());           // drops the request for utl_b
  EXPECT_NE(UTL_DMEM_ALLOC(8, "utl_seq", 31), nullptr);  // fires, and the allocation goes ahead
  EXPECT_EQ(g_quits, 1);                                 // and none of the later ones
  UTL_DMEM_FAIL("utl_old", 7);
  UTL_DMEM_FAIL("utl_demo", 40);  // replaces the request for utl_old, freeing its copy
  for (const auto &[file, line, fires] : kCalls) {
    const int quits = g_quits;
    Free(UTL_DMEM_ALLOC(4, file, line));
    EXPECT_EQ(g_quits - quits, fires ? 1 : 0) << file << ":" << line;
  }
  UTL_DMEM_FAIL(nullptr, 0);  // nothing left to drop: the copy went with the request
  EXPECT_EQ(std::pair(g_quits + 0, UTL_DMEM_ALLOCATED_BYTES()), std::pair(2, 8u));
}

TEST_F(DebugMode, ListingAndNotificationShowTheLiveBlocks) {
  static constexpr const char *kLines[] = {
      "Filename alpha line 10 size 8 sequence number 1\n",
      "Filename beta line 20 size 16 sequence number 2\n",
      "Filename alpha line 30 size 0 sequence number 3\n",
      "Filename neg line 4294967291 size 4 sequence number 4\n",
      "Filename neg line -5 size 4 sequence number 4\n"};  // printed with a filter
  // Filter, first and last sequence numbers, the lines printed (newest first).
  static constexpr std::tuple<const char *, unsigned int, unsigned int, const char *> kCases[] = {
      {nullptr, 0, 0, "3210"}, {"alpha", 1, 0, "20"}, {nullptr, 2, 3, "21"}, {"neg", 0, 0, "4"}};
  EXPECT_EQ(Printed([] {
              UTL_DMEM_NOTIFY(16);
              UTL_DMEM_ALLOC(8, "alpha", 10);
              UTL_DMEM_ALLOC(16, "beta", 20);
              UTL_DMEM_NOTIFY(0);
              UTL_DMEM_ALLOC(0, "alpha", 30);
              UTL_DMEM_ALLOC(4, "neg", -5);
            }),
            "\n\nNotification set for memory allocations of \"16\" or more bytes.\n\n"
            "\n\nNOTIFICATION:  File beta line 20 allocated 16 bytes.\n\n"
            "\n\nNotification set for memory allocations of \"0\" or more bytes.\n\n");
  for (const auto &[filter, first, last, expected] : kCases) {
    std::string printed;
    for (const char *at = expected; *at; ++at)
      printed += kLines[*at - '0'];
    EXPECT_EQ(Printed(UTL_DMEM_MPA, nullptr, filter, first, last), printed) << expected;
  }
  EXPECT_EQ(Printed([] {
              UTL_DMEM_MPA(nullptr, nullptr, 5, 0);
              UTL_INTR_SIMULATE();  // the walk stops at once
              UTL_DMEM_MPA(nullptr, nullptr, 0, 0);
              UTL_DMEM_MPA("/nonexistent-qx-dir/list.txt", nullptr, 0, 0);
            }),
            "The sequence number 5 you requested is out of range.\n"
            "The next available sequence number is 5.\n"
            "\n\nSorry, couldn't open file /nonexistent-qx-dir/list.txt./n\n");
}

}  // namespace
