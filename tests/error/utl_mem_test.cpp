// Tests of the allocator in plain and debug mode. Faults end the process with
// SIGQUIT; cases that must survive one install a counting SIGQUIT handler.
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "qx_test.h"
#include "utl_error.h"
#include "utl_intr.h"
#include "utl_mem.h"

namespace {

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QX_TEST_ASAN
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(QX_TEST_ASAN)
constexpr bool kAsan = true;
#else
constexpr bool kAsan = false;
#endif

// The debug-block layout: line, size, sequence number and inner guard follow
// the file pointer as 32-bit words.
constexpr bool kLp64 = sizeof(void *) == 8;
constexpr std::ptrdiff_t kHeader = kLp64 ? 48 : 32, kFileAt = kLp64 ? 24 : 12;
constexpr std::ptrdiff_t kLineAt = kFileAt + sizeof(char *), kSizeAt = kLineAt + 4,
                         kSequenceAt = kLineAt + 8, kInnerAt = kLineAt + 12;
const std::string kActivated = "\n\nIMPORTANT: Memory debugging has been activated.\n\n";

unsigned char *Bytes(void *p) {
  return static_cast<unsigned char *>(p);
}
unsigned char *StartOf(void *p) {
  return Bytes(p) - kHeader;
}
std::uint32_t WordAt(const unsigned char *at) {
  std::uint32_t word;
  std::memcpy(&word, at, sizeof word);
  return word;
}
bool AllBytes(const unsigned char *at, std::size_t n, unsigned char value) {
  return std::count(at, at + n, value) == static_cast<std::ptrdiff_t>(n);
}

std::string g_printed;
int CapturePrint(const char *format, ...) {
  char text[2048];
  va_list args;
  va_start(args, format);
  const int n = std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  g_printed += text;
  return n;
}
std::string TakePrinted() {
  return std::exchange(g_printed, {});
}

volatile sig_atomic_t g_quits = 0;
void CatchQuit() {
  signal(SIGQUIT, [](int) { g_quits = g_quits + 1; });
}

TEST(PlainMode, ZeroBytesPrintFunctionAndFailureRecords) {
  struct Case {
    const char *routine;
    bool (*call)(void *old);  // true when it answered as a failure should
    const char *code = "NO_MEMORY";
  };
  static const Case kCases[] = {
      {"UTL_MEM_ALLOC", [](void *) { return !UTL_DMEM_ALLOC(8, "t", 1); }},
      {"UTL_MEM_CALLOC", [](void *) { return !UTL_DMEM_CALLOC(2, 8, "t", 1); }},
      {"UTL_MEM_REALLOC (0)", [](void *p) { return !UTL_DMEM_REALLOC(p, 99, "t", 1); }},
      {"UTL_MEM_RECALLOC", [](void *p) { return !UTL_DMEM_RECALLOC(p, 99, "t", 1); }},
      // The copy of the file name is refused: no request is set (see below).
      {"UTL_MEM_ALLOC", [](void *) { return UTL_DMEM_FAIL("utl_demo", 40), true; }},
      {"UTL_DMEM_SET_FREQ", [](void *) { return UTL_DMEM_SET_FREQ(5), true; }, "SET_FREQ"},
      {"UTL_DMEM_MPA", [](void *) { return !UTL_DMEM_MPA(nullptr, nullptr, 0, 0); }, "MEM_PRINT"},
  };
  void *zero[] = {UTL_DMEM_ALLOC(0, "t", 1), UTL_DMEM_CALLOC(0, 4, "t", 2),
                  UTL_DMEM_REALLOC(nullptr, 0, "t", 3), nullptr};
  EXPECT_EQ(std::set<void *>(std::begin(zero), std::end(zero)).size(), 4u);
  for (void *block : zero)
    EXPECT_EQ(UTL_DMEM_FREE(block, "t", 4), 1);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  EXPECT_STREQ(UTL_MEM_GET_VERSION(), "Sep 23 2011");
  EXPECT_EQ(UTL_DMEM_INITIALIZE(nullptr), nullptr);
  {
    qxtest::CaptureStream out(stdout);  // still the default printf
    UTL_DMEM_NOTIFY(7);
    EXPECT_EQ(out.Text(),
              "\n\nNotification set for memory allocations of \"7\" or more bytes.\n\n");
  }
  EXPECT_EQ(UTL_DMEM_INITIALIZE(CapturePrint), CapturePrint);
  auto *old = static_cast<char *>(UTL_DMEM_ALLOC(4, "t", 1));
  std::memcpy(old, "abc", 4);
  for (const Case &c : kCases) {
    {
      qxtest::FailAllocation refuse(1);
      EXPECT_TRUE(c.call(old)) << c.routine;
    }
    EXPECT_EQ(qxtest::TopIdentity(), std::string("UTL/MEM/FATAL/") + c.code);
    EXPECT_EQ(qxtest::TopError().traces, std::vector<std::string>{c.routine});
    UTL_ERROR_CLEAR();
  }
  EXPECT_STREQ(old, "abc");  // a refused resize leaves the block alone
  UTL_DMEM_FREE(old, "t", 2);
  EXPECT_EQ(TakePrinted(), "");
  CatchQuit();
  UTL_DMEM_SET_DEBUG();
  UTL_DMEM_ALLOC(4, "utl_demo", 40);
  EXPECT_EQ(g_quits, 0);
}

class DebugMode : public testing::Test {
 protected:
  void SetUp() override {
    UTL_DMEM_INITIALIZE(CapturePrint);
    UTL_DMEM_SET_DEBUG();
    EXPECT_EQ(TakePrinted(), kActivated);
  }
};

TEST_F(DebugMode, BlocksAreGuardedNumberedAndFilled) {
  static const char kFile[] = "utl_layout";
  void *blocks[] = {UTL_DMEM_ALLOC(10, kFile, 70), UTL_DMEM_ALLOC(0, kFile, 71),
                    UTL_DMEM_ALLOC(0, kFile, 72), UTL_DMEM_CALLOC(3, 5, kFile, 73)};
  constexpr unsigned int kSizes[] = {10, 0, 0, 15};
  EXPECT_EQ(std::set<void *>(std::begin(blocks), std::end(blocks)).size(), 4u);
  for (unsigned int i = 0; i < 4; ++i) {
    const unsigned char *start = StartOf(blocks[i]);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(blocks[i]) % (kLp64 ? 16 : 8), 0u);
    const char *file;
    std::memcpy(&file, start + kFileAt, sizeof file);
    EXPECT_EQ(file, kFile);  // the caller's text itself, not a copy
    EXPECT_EQ(WordAt(start), 0xBBBBBBBBu);
    EXPECT_EQ(WordAt(start + kLineAt), 70 + i);
    EXPECT_EQ(WordAt(start + kSizeAt), kSizes[i]);
    EXPECT_EQ(WordAt(start + kSequenceAt), i + 1);
    EXPECT_EQ(WordAt(start + kInnerAt), 0xCCCCCCCCu);
    EXPECT_TRUE(AllBytes(Bytes(blocks[i]), kSizes[i], i == 3 ? 0 : 0xEE)) << i;
    EXPECT_TRUE(AllBytes(Bytes(blocks[i]) + kSizes[i], 4, 0xDD)) << i;
  }
  UTL_DMEM_CHK_HEAP_NOW();  // a finding would end the process
  UTL_DMEM_FREE(blocks[0], "t", 1);
  // A freed block is filled before the runtime heap sees it again.
  EXPECT_TRUE(AllBytes(StartOf(blocks[0]), kHeader + 10 + 4, 0x7A));
}

TEST_F(DebugMode, ResizeCopiesTheSmallerSizeAndCountersFollow) {
  static constexpr std::pair<unsigned int, unsigned int> kCases[] = {{8, 20}, {20, 8}, {8, 8},
                                                                     {8, 0},  {0, 5},  {7, 9}};
  void *keep = UTL_DMEM_ALLOC(100, "t", 1);  // live throughout
  for (const auto &[from, to] : kCases) {
    SCOPED_TRACE(testing::Message() << from << " -> " << to);
    auto *old = Bytes(UTL_DMEM_ALLOC(from, "t", 2));
    EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 100 + from);
    for (unsigned int i = 0; i < from; ++i)
      old[i] = static_cast<unsigned char>(i + 1);
    const unsigned int predicted = UTL_DMEM_NEXT_NUM();
    auto *fresh =
        Bytes(from % 2 ? UTL_DMEM_RECALLOC(old, to, "t", 3) : UTL_DMEM_REALLOC(old, to, "t", 3));
    ASSERT_NE(fresh, old);
    EXPECT_EQ(WordAt(StartOf(fresh) + kSequenceAt), predicted);
    const unsigned int kept = std::min(from, to);
    for (unsigned int i = 0; i < kept; ++i)
      EXPECT_EQ(fresh[i], i + 1);
    EXPECT_TRUE(AllBytes(fresh + kept, to - kept, 0xEE));
    EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 100 + to);  // the old block is gone
    UTL_DMEM_FREE(fresh, "t", 4);
    EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 100u);
  }
  EXPECT_EQ(UTL_DMEM_MAX_ALLOCATED_BYTES(), 128u);  // 100 + 20 + 8 during a resize
  auto **rows = static_cast<void **>(UTL_DMEM_CALLOC(4, sizeof(void *), "t", 5));
  rows[0] = UTL_DMEM_ALLOC(10, "t", 6);
  rows[2] = UTL_DMEM_ALLOC(30, "t", 7);  // rows 1 and 3 stay null
  EXPECT_EQ(UTL_MEM_FREE_2D_ARRAY(4, rows), 1);
  EXPECT_EQ(UTL_MEM_FREE_2D_ARRAY(3, nullptr), 1);
  UTL_DMEM_REALLOC(nullptr, 3, "t", 8);
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 103u);
  UTL_DMEM_FREE(keep, "t", 9);
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 3u);
}

// A debug block of `size` bytes with the byte at `at` (from its data)
// overwritten, followed by a newer sound block.
unsigned char *Damaged(unsigned int size, std::ptrdiff_t at) {
  auto *p = Bytes(UTL_DMEM_ALLOC(size, "t", 1));
  UTL_DMEM_ALLOC(4, "t", 2);
  p[at] = 0x55;
  return p;
}
void Free(void *p) {
  UTL_DMEM_FREE(p, "t", 3);
}
void FreeTwice(void *p) {
  Free(p);
  Free(p);
}
// A real run of writes from one block over the next one's head guard.
void OverrunIntoNeighbour(void *) {
  auto *a = Bytes(UTL_DMEM_ALLOC(16, "t", 1));
  unsigned char *to = StartOf(UTL_DMEM_ALLOC(16, "t", 2)) + 4;
  const bool adjacent = to > a && to - a < 256;
  std::memset(adjacent ? a : to - 4, 0x55, adjacent ? to - a : 4);
}

struct Fault {
  const char *name, *code;
  void (*act)(void *plain);    // `plain` is a block from before debug mode
  const char *announced = "";  // printed before the code
  bool touches_unowned_memory = false;
  friend void PrintTo(const Fault &fault, std::ostream *os) { *os << fault.name; }
};

// Each act is followed by a whole-list check and an allocation from
// utl_demo line 40, which none of them may survive.
const Fault kFaults[] = {
    {"PastTheEnd", "MEM_BLOCK_OVERRUN", [](void *) { Free(Damaged(16, 16)); }},
    {"BeforeTheStart", "MEM_BLOCK_UNDERRUN", [](void *) { Free(Damaged(16, -1)); }},
    {"HeadGuard", "MEM_BLOCK_PREVIOUS_OVERRUN", [](void *) { Free(Damaged(8, -kHeader)); }},
    {"AtResize", "MEM_BLOCK_OVERRUN", [](void *) { UTL_DMEM_REALLOC(Damaged(5, 8), 50, "t", 3); }},
    {"FreedTwice", "MEM_BLOCK_PREVIOUSLY_FREE",
     [](void *) { FreeTwice(UTL_DMEM_ALLOC(24, "t", 1)); }},
    {"PlainBlock", "MEM_BLOCK_BAD_POINTER", Free, "", true},
    {"ListTrailer", "MEM_HEAP_OVERRUN", [](void *) { Damaged(4, 5); }},
    {"ListInnerGuard", "MEM_HEAP_UNDERRUN", [](void *) { Damaged(4, -2); }},
    {"ListNeighbour", "MEM_HEAP_PREVIOUS_OVERRUN", OverrunIntoNeighbour, "", true},
    {"NullFileName", "FILE_NAME_IS_NIL_FOR_ALLOCATION",
     [](void *) { UTL_DMEM_ALLOC(8, nullptr, 2); }},
    {"HeapRefuses", "MEM_NOT_ENOUGH", [](void *) { qx::heap::FailNth(1); }},
    {"SequenceRequest", "INTENTIONAL_FAILURE", [](void *) { UTL_DMEM_FAIL(nullptr, 1); },
     "\n\nIntentional failure set for \"1\" sequence number allocation.\n\n"
     "\n\nIntentional failure occurring in \"utl_demo\" line 40 sequence number 1.\n\n"},
    {"FileRequest", "INTENTIONAL_FAILURE", [](void *) { UTL_DMEM_FAIL("utl_demo", 40); },
     "\n\nIntentional failure set for \"utl_demo\" line 40.\n\n"
     "\n\nIntentional failure occurring in \"utl_demo\" line 40.\n\n"},
};

class DebugFault : public testing::TestWithParam<Fault> {};

// The child joins its standard output to the standard error that the parent
// compares byte for byte, and leaves no core file.
TEST_P(DebugFault, WritesItsCodeAndStopsWithSigquit) {
  const Fault &fault = GetParam();
  // AddressSanitizer would report these as the misuse they are.
  if (kAsan && fault.touches_unowned_memory) GTEST_SKIP();
  const auto provoke = [&fault] {
    const rlimit no_core = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    std::fflush(stdout);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    void *plain = UTL_DMEM_ALLOC(64, "t", 1);
    UTL_DMEM_SET_DEBUG();
    fault.act(plain);
    UTL_DMEM_CHK_HEAP_NOW();
    UTL_DMEM_ALLOC(8, "utl_demo", 40);
    std::fflush(stdout);
    std::_Exit(0);
  };
  EXPECT_EXIT(provoke(), testing::KilledBySignal(SIGQUIT),
              testing::Eq(kActivated + fault.announced + fault.code + "\n"));
}
INSTANTIATE_TEST_SUITE_P(Table, DebugFault, testing::ValuesIn(kFaults));

TEST_F(DebugMode, CaughtFaultsLeaveUntrustedBlocksAlone) {
  CatchQuit();
  void *keep = UTL_DMEM_ALLOC(12, "t", 1);
  auto *overrun = Bytes(UTL_DMEM_ALLOC(6, "t", 2));
  overrun[6] = 0;
  qxtest::CaptureStream out(stdout);
  UTL_DMEM_CHK_HEAP_NOW();
  UTL_DMEM_FREE(overrun, "t", 3);         // trailer only: the header is sound, so it is freed
  FreeTwice(UTL_DMEM_ALLOC(24, "t", 4));  // the second free is reported and goes no further
  UTL_DMEM_CHK_HEAP_NOW();
  EXPECT_EQ(UTL_DMEM_CALLOC(0x10000, 0x10001, "t", 5), nullptr);  // not allocated short
  EXPECT_EQ(qxtest::TopError().traces.back(), "UTL_MEM_CALLOC");
  EXPECT_EQ(out.Text(),
            "MEM_HEAP_OVERRUN\nMEM_BLOCK_OVERRUN\nMEM_BLOCK_PREVIOUSLY_FREE\nMEM_BLOCK_UNDERRUN\n"
            "MEM_NOT_ENOUGH\n");
  EXPECT_EQ(g_quits, 5);
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 12u);
  // A damaged head guard ends every walk: that block's links may be damaged too.
  void *middle = UTL_DMEM_ALLOC(4, "t", 6);
  UTL_DMEM_ALLOC(4, "t", 7);
  Bytes(keep)[12] = 0;  // older: would be MEM_HEAP_OVERRUN if reached
  StartOf(middle)[0] = 0;
  UTL_DMEM_CHK_HEAP_NOW();
  EXPECT_EQ(g_quits, 6);
  UTL_DMEM_MPA(nullptr, nullptr, 0, 0);
  EXPECT_EQ(TakePrinted(),
            "Filename t line 7 size 4 sequence number 5\n"
            "Filename t line 6 size 4 sequence number 4\n");
}

TEST_F(DebugMode, PeriodicCheckRunsEveryNthPass) {
  // Each frequency and the passes whose whole-list check finds the damage.
  static constexpr std::pair<int, const char *> kCases[] = {
      {0, ""}, {1, "1 2 3 4 5 6 7 8 9 "}, {3, "1 4 7 "}, {4, "1 5 9 "}, {9, "1 "}};
  CatchQuit();
  Bytes(UTL_DMEM_ALLOC(4, "t", 1))[4] = 0;
  for (const auto &[frequency, checked_passes] : kCases) {
    UTL_DMEM_SET_FREQ(frequency);
    EXPECT_EQ(TakePrinted(), "\n\nThe memory heap will be checked every " +
                                 std::to_string(frequency) + " passes. \n\n");
    // Allocations, null frees and real frees each count as one pass.
    void *block = nullptr;
    std::string checked;
    for (int pass = 1; pass <= 9; ++pass) {
      const int before = g_quits;
      if (pass % 3 == 1)
        block = UTL_DMEM_ALLOC(2, "t", 2);
      else
        UTL_DMEM_FREE(pass % 3 == 2 ? nullptr : block, "t", 3);
      if (g_quits != before) checked += std::to_string(pass) + " ";
    }
    EXPECT_EQ(checked, checked_passes) << frequency;
  }
}

TEST_F(DebugMode, NotificationAnnouncesLargeAllocations) {
  static constexpr std::tuple<unsigned int, unsigned int, bool> kCases[] = {
      {0, 5000, false}, {100, 99, false}, {100, 100, true}, {100, 101, true}, {1, 0, false}};
  for (const auto &[threshold, size, announced] : kCases) {
    SCOPED_TRACE(testing::Message() << threshold << " / " << size);
    UTL_DMEM_NOTIFY(threshold);
    EXPECT_EQ(TakePrinted(), "\n\nNotification set for memory allocations of \"" +
                                 std::to_string(threshold) + "\" or more bytes.\n\n");
    UTL_DMEM_FREE(UTL_DMEM_ALLOC(size, "utl_big", 12), "t", 1);
    EXPECT_EQ(TakePrinted(), announced ? "\n\nNOTIFICATION:  File utl_big line 12 allocated " +
                                             std::to_string(size) + " bytes.\n\n"
                                       : "");
  }
}

TEST_F(DebugMode, IntentionalFailuresFireOnceAtTheirTarget) {
  static constexpr std::tuple<const char *, int, bool> kCalls[] = {
      {"utl_old", 7, false},   {"utl_demo", 41, false},   {"utl_dem", 40, false},
      {"UTL_DEMO", 40, false}, {"utl_demo.c", 40, false}, {"utl_demo", 40, true},
      {"utl_demo", 40, false}};
  CatchQuit();
  UTL_DMEM_FAIL(nullptr, 2);
  UTL_DMEM_ALLOC(1, "t", 1);
  void *hit = UTL_DMEM_ALLOC(8, "utl_seq", 31);
  EXPECT_EQ(g_quits, 1);
  EXPECT_EQ(WordAt(StartOf(hit) + kSequenceAt), 2u);  // the allocation goes ahead
  EXPECT_EQ(TakePrinted(),
            "\n\nIntentional failure set for \"2\" sequence number allocation.\n\n"
            "\n\nIntentional failure occurring in \"utl_seq\" line 31 sequence number 2.\n\n");
  UTL_DMEM_FAIL("utl_old", 7);
  UTL_DMEM_FAIL("utl_demo", 40);       // replaces the first request and frees its copy
  EXPECT_EQ(UTL_DMEM_NEXT_NUM(), 5u);  // each copy of the name took a number; frees take none
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 9 + sizeof "utl_demo");
  TakePrinted();
  for (const auto &[file, line, fires] : kCalls) {
    const int quits = g_quits;
    UTL_DMEM_FREE(UTL_DMEM_ALLOC(4, file, line), "t", 1);
    EXPECT_EQ(g_quits - quits, fires ? 1 : 0) << file << ":" << line;
    EXPECT_EQ(TakePrinted().empty(), !fires);
  }
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 9u);  // the copy went with the request
  UTL_DMEM_FAIL("utl_b", 2);
  UTL_DMEM_FAIL(nullptr, 0);  // drops the file request, sets no sequence request
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 9u);
}

TEST_F(DebugMode, ListingSelectsByRangeAndFileNewestFirst) {
  static constexpr const char *kLines[] = {
      "Filename alpha line 10 size 8 sequence number 1\n",
      "Filename beta line 20 size 16 sequence number 2\n",
      "Filename alpha line 30 size 0 sequence number 3\n",
      "Filename neg line 4294967291 size 4 sequence number 4\n",
      "Filename neg line -5 size 4 sequence number 4\n"};  // printed with a filter
  // Filter, first and last sequence numbers, the blocks listed (newest first).
  static constexpr std::tuple<const char *, unsigned int, unsigned int, const char *> kCases[] = {
      {nullptr, 0, 0, "3210"}, {"alpha", 1, 0, "20"}, {nullptr, 2, 2, "1"}, {nullptr, 4, 0, "3"},
      {nullptr, 1, 3, "210"},  {"gamma", 0, 0, ""},   {"beta", 3, 4, ""},   {"neg", 0, 0, "3"},
      {nullptr, 5, 0, ""},     {"alpha", 9, 0, ""}};
  UTL_DMEM_ALLOC(8, "alpha", 10);
  UTL_DMEM_ALLOC(16, "beta", 20);
  UTL_DMEM_ALLOC(0, "alpha", 30);
  UTL_DMEM_ALLOC(4, "neg", -5);
  const std::string path = testing::TempDir() + "qx_mpa_" + std::to_string(getpid());
  for (const auto &[filter, first, last, expected] : kCases) {
    SCOPED_TRACE(testing::Message() << (filter ? filter : "(all)") << " " << first);
    std::string printed, filed;
    if (first > 4)
      printed = filed =
          "The sequence number " + std::to_string(first) +
          " you requested is out of range.\nThe next available sequence number is 5.\n";
    for (const char *at = expected; *at; ++at) {
      printed += *at == '3' && filter ? kLines[4] : kLines[*at - '0'];
      filed += kLines[*at - '0'];
    }
    EXPECT_EQ(UTL_DMEM_MPA(nullptr, filter, first, last), 1);
    EXPECT_EQ(TakePrinted(), printed);
    EXPECT_EQ(UTL_DMEM_MPA(path.c_str(), filter, first, last), 1);
    std::ifstream in(path);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), filed);
    EXPECT_EQ(TakePrinted(), "");
  }
  std::remove(path.c_str());
  UTL_INTR_SIMULATE();  // the walk stops at once
  EXPECT_EQ(UTL_DMEM_MPA(nullptr, nullptr, 0, 0), 1);
  EXPECT_EQ(TakePrinted(), "");
  EXPECT_EQ(UTL_DMEM_MPA("/nonexistent-qx-dir/list.txt", nullptr, 0, 0), 0);
  EXPECT_EQ(TakePrinted(), "\n\nSorry, couldn't open file /nonexistent-qx-dir/list.txt./n\n");
}

}  // namespace
