// Tests of the allocator: the plain path and its NO_MEMORY records, debug-mode
// block layout, counters, checks and their fault codes, intentional failures,
// notifications, periodic checks and the block listing.
//
// Fault codes end the process with SIGQUIT; those cases run as death tests
// whose child sends its standard output to a file that the parent reads back.
// Cases that must survive the signal install a counting SIGQUIT handler.
#include <fcntl.h>
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
#include <vector>

#include <gtest/gtest.h>

#include "qx_test.h"
#include "utl_error.h"
#include "utl_intr.h"
#include "utl_mem.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QX_TEST_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define QX_TEST_ASAN 1
#endif
#ifndef QX_TEST_ASAN
#define QX_TEST_ASAN 0
#endif

namespace {

// The documented debug-block layout, by pointer width.
constexpr bool kLp64 = sizeof(void *) == 8;
constexpr std::size_t kHeader = kLp64 ? 48 : 32;
constexpr std::size_t kFileAt = kLp64 ? 24 : 12;
constexpr std::size_t kLineAt = kLp64 ? 32 : 16;
constexpr std::size_t kSizeAt = kLp64 ? 36 : 20;
constexpr std::size_t kSequenceAt = kLp64 ? 40 : 24;
constexpr std::size_t kInnerAt = kLp64 ? 44 : 28;

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
  for (std::size_t i = 0; i < n; ++i)
    if (at[i] != value) return false;
  return true;
}

// ---- Capturing announcements and counting SIGQUIT -------------------------

std::string g_printed;
int CapturePrint(const char *format, ...) {
  char text[2048];
  va_list args;
  va_start(args, format);
  const int n = std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  g_printed.append(text, n < 0 ? 0 : std::min<std::size_t>(n, sizeof text - 1));
  return n;
}
std::string TakePrinted() {
  std::string text;
  text.swap(g_printed);
  return text;
}

volatile sig_atomic_t g_quits = 0;
void CountQuit(int) {
  g_quits = g_quits + 1;
}
void CatchQuit() {
  signal(SIGQUIT, CountQuit);
}

std::string ReadFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string ScratchPath(const char *name) {
  return testing::TempDir() + "qx_mem_" + name + "_" + std::to_string(getpid());
}

// Death-test child: no core file, standard output into `path`, run `body`;
// surviving it is a failure the parent sees as a normal exit.
void RunWithStdoutTo(const std::string &path, void (*body)()) {
  const rlimit no_core = {0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  std::fflush(stdout);
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  dup2(fd, STDOUT_FILENO);
  close(fd);
  body();
  std::fflush(stdout);
  std::_Exit(0);
}

// ---- Plain mode ------------------------------------------------------------

TEST(PlainAllocation, ZeroBytesGiveUniqueUsablePointers) {
  std::set<void *> seen;
  void *blocks[3] = {UTL_DMEM_ALLOC(0, "t", 1), UTL_DMEM_CALLOC(0, 4, "t", 2),
                     UTL_DMEM_REALLOC(nullptr, 0, "t", 3)};
  for (void *block : blocks) {
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(seen.insert(block).second);
  }
  for (void *block : blocks)
    EXPECT_EQ(UTL_DMEM_FREE(block, "t", 4), 1);
  EXPECT_EQ(UTL_DMEM_FREE(nullptr, "t", 5), 1);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

TEST(PlainAllocation, RefusedRequestRecordsNoMemoryUnderItsRoutine) {
  struct Case {
    const char *routine;
    void *(*call)(void *old);
  };
  static const Case kCases[] = {
      {"UTL_MEM_ALLOC", [](void *) { return UTL_DMEM_ALLOC(8, "t", 1); }},
      {"UTL_MEM_CALLOC", [](void *) { return UTL_DMEM_CALLOC(2, 8, "t", 1); }},
      {"UTL_MEM_REALLOC (0)", [](void *old) { return UTL_DMEM_REALLOC(old, 4096, "t", 1); }},
      {"UTL_MEM_RECALLOC", [](void *old) { return UTL_DMEM_RECALLOC(old, 4096, "t", 1); }},
  };
  for (const Case &c : kCases) {
    SCOPED_TRACE(c.routine);
    auto *old = static_cast<char *>(UTL_DMEM_ALLOC(4, "t", 1));
    ASSERT_NE(old, nullptr);
    std::memcpy(old, "abc", 4);
    {
      qxtest::FailAllocation refuse(1);
      EXPECT_EQ(c.call(old), nullptr);
    }
    EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
    EXPECT_EQ(qxtest::TopError().traces, std::vector<std::string>{c.routine});
    EXPECT_STREQ(old, "abc");  // a refused resize leaves the block alone
    UTL_ERROR_CLEAR();
    UTL_DMEM_FREE(old, "t", 2);
  }
}

TEST(PlainAllocation, SettingsThatNeedDebugModeRecordErrors) {
  UTL_DMEM_INITIALIZE(CapturePrint);
  UTL_DMEM_SET_FREQ(5);
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/SET_FREQ");
  EXPECT_EQ(qxtest::TopError().traces, std::vector<std::string>{"UTL_DMEM_SET_FREQ"});
  UTL_ERROR_CLEAR();
  EXPECT_EQ(UTL_DMEM_MPA(nullptr, nullptr, 0, 0), 0);
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/MEM_PRINT");
  EXPECT_EQ(qxtest::TopError().traces, std::vector<std::string>{"UTL_DMEM_MPA"});
  EXPECT_EQ(TakePrinted(), "");
}

TEST(PlainAllocation, FailRequestWithoutMemoryForItsCopySetsNothing) {
  UTL_DMEM_INITIALIZE(CapturePrint);
  {
    qxtest::FailAllocation refuse(1);
    UTL_DMEM_FAIL("utl_demo", 40);
  }
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
  EXPECT_EQ(TakePrinted(), "");
  UTL_ERROR_CLEAR();
  CatchQuit();
  UTL_DMEM_SET_DEBUG();
  UTL_DMEM_FREE(UTL_DMEM_ALLOC(4, "utl_demo", 40), "t", 1);
  EXPECT_EQ(g_quits, 0);
}

TEST(PlainAllocation, VersionAndPrintFunction) {
  EXPECT_STREQ(UTL_MEM_GET_VERSION(), "Sep 23 2011");
  EXPECT_EQ(UTL_DMEM_INITIALIZE(nullptr), nullptr);
  {
    qxtest::CaptureStream out(stdout);  // still the default printf
    UTL_DMEM_NOTIFY(0);
    EXPECT_EQ(out.Text(),
              "\n\nNotification set for memory allocations of \"0\" or more bytes.\n\n");
  }
  EXPECT_EQ(UTL_DMEM_INITIALIZE(CapturePrint), CapturePrint);
  UTL_DMEM_NOTIFY(7);
  EXPECT_EQ(TakePrinted(),
            "\n\nNotification set for memory allocations of \"7\" or more bytes.\n\n");
}

// ---- Debug mode: layout, counters, resizing ---------------------------------

class DebugMode : public testing::Test {
 protected:
  void SetUp() override {
    UTL_DMEM_INITIALIZE(CapturePrint);
    UTL_DMEM_SET_DEBUG();
    EXPECT_EQ(TakePrinted(), kActivated);
  }
};

TEST_F(DebugMode, BlockLayoutGuardsAndFill) {
  static const char kFile[] = "utl_layout";
  const unsigned int sequence = UTL_DMEM_NEXT_NUM();
  void *p = UTL_DMEM_ALLOC(10, kFile, 77);
  ASSERT_NE(p, nullptr);
  const unsigned char *start = StartOf(p);
  if (kLp64) {
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 16, 0u);
  }
  EXPECT_EQ(WordAt(start), 0xBBBBBBBBu);
  EXPECT_EQ(WordAt(start + kInnerAt), 0xCCCCCCCCu);
  const char *file;
  std::memcpy(&file, start + kFileAt, sizeof file);
  EXPECT_EQ(file, kFile);  // the caller's text itself, not a copy
  EXPECT_EQ(WordAt(start + kLineAt), 77u);
  EXPECT_EQ(WordAt(start + kSizeAt), 10u);
  EXPECT_EQ(WordAt(start + kSequenceAt), sequence);
  EXPECT_TRUE(AllBytes(Bytes(p), 10, 0xEE));
  EXPECT_TRUE(AllBytes(Bytes(p) + 10, 4, 0xDD));
  UTL_DMEM_FREE(p, kFile, 78);
  // Freed blocks stay parked, filled, before the runtime heap sees them.
  EXPECT_TRUE(AllBytes(start, kHeader + 10 + 4, 0x7A));
}

TEST_F(DebugMode, ZeroBytesGiveUniquePointersWithIntactGuards) {
  CatchQuit();
  void *a = UTL_DMEM_ALLOC(0, "t", 1);
  void *b = UTL_DMEM_ALLOC(0, "t", 2);
  void *c = UTL_DMEM_CALLOC(0, 0, "t", 3);
  ASSERT_TRUE(a && b && c);
  EXPECT_TRUE(a != b && b != c && a != c);
  EXPECT_TRUE(AllBytes(Bytes(a), 4, 0xDD));
  UTL_DMEM_CHK_HEAP_NOW();
  for (void *p : {a, b, c})
    UTL_DMEM_FREE(p, "t", 4);
  EXPECT_EQ(g_quits, 0);
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 0u);
}

TEST_F(DebugMode, CountersFollowAllocationsAndFrees) {
  struct Step {
    unsigned int size;
    unsigned int allocated_after_alloc;
    unsigned int max_after_free;
  };
  // A 100-byte block stays live throughout.
  static constexpr Step kSteps[] = {{0, 100, 100}, {50, 150, 150}, {20, 120, 150}, {300, 400, 400}};
  void *keep = UTL_DMEM_ALLOC(100, "t", 1);
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 100u);
  for (const Step &step : kSteps) {
    SCOPED_TRACE(step.size);
    const unsigned int predicted = UTL_DMEM_NEXT_NUM();
    void *p = UTL_DMEM_ALLOC(step.size, "t", 2);
    EXPECT_EQ(WordAt(StartOf(p) + kSequenceAt), predicted);
    EXPECT_EQ(UTL_DMEM_NEXT_NUM(), predicted + 1);
    EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), step.allocated_after_alloc);
    UTL_DMEM_FREE(p, "t", 3);
    EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 100u);
    EXPECT_EQ(UTL_DMEM_MAX_ALLOCATED_BYTES(), step.max_after_free);
    EXPECT_EQ(UTL_DMEM_NEXT_NUM(), predicted + 1);  // frees take no number
  }
  UTL_DMEM_FREE(keep, "t", 4);
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 0u);
}

TEST_F(DebugMode, ResizeCopiesTheSmallerSizeIntoANewBlock) {
  struct Case {
    unsigned int from, to;
  };
  static constexpr Case kCases[] = {{8, 20}, {20, 8}, {8, 8}, {8, 0}, {0, 5}};
  CatchQuit();
  for (const Case &c : kCases) {
    SCOPED_TRACE(testing::Message() << c.from << " -> " << c.to);
    auto *old = Bytes(UTL_DMEM_ALLOC(c.from, "t", 1));
    for (unsigned int i = 0; i < c.from; ++i)
      old[i] = static_cast<unsigned char>(i + 1);
    const unsigned int predicted = UTL_DMEM_NEXT_NUM();
    auto *fresh = Bytes(c.from % 2 ? UTL_DMEM_RECALLOC(old, c.to, "t", 2)
                                   : UTL_DMEM_REALLOC(old, c.to, "t", 2));
    ASSERT_NE(fresh, nullptr);
    EXPECT_NE(fresh, old);
    EXPECT_EQ(WordAt(StartOf(fresh) + kSequenceAt), predicted);
    const unsigned int kept = std::min(c.from, c.to);
    for (unsigned int i = 0; i < kept; ++i)
      EXPECT_EQ(fresh[i], i + 1);
    EXPECT_TRUE(AllBytes(fresh + kept, c.to - kept, 0xEE));
    EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), c.to);  // the old block is gone
    UTL_DMEM_FREE(fresh, "t", 3);
  }
  void *from_null = UTL_DMEM_REALLOC(nullptr, 3, "t", 4);
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 3u);
  UTL_DMEM_FREE(from_null, "t", 5);
  EXPECT_EQ(g_quits, 0);
}

TEST_F(DebugMode, CallocZeroesAndRefusesAnOverflowingProduct) {
  CatchQuit();
  auto *zeroed = Bytes(UTL_DMEM_CALLOC(3, 5, "t", 1));
  EXPECT_TRUE(AllBytes(zeroed, 15, 0));
  EXPECT_TRUE(AllBytes(zeroed + 15, 4, 0xDD));
  UTL_DMEM_FREE(zeroed, "t", 2);
  {
    qxtest::CaptureStream out(stdout);
    EXPECT_EQ(UTL_DMEM_CALLOC(0x10000, 0x10001, "t", 3), nullptr);
    EXPECT_EQ(out.Text(), "MEM_NOT_ENOUGH\n");
  }
  EXPECT_EQ(g_quits, 1);
  EXPECT_EQ(qxtest::TopError().traces.back(), "UTL_MEM_CALLOC");
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 0u);
}

TEST_F(DebugMode, FreeTwoDimensionalArrayFreesRowsAndArray) {
  CatchQuit();
  auto **rows = static_cast<void **>(UTL_DMEM_CALLOC(4, sizeof(void *), "t", 1));
  const unsigned int base = UTL_DMEM_ALLOCATED_BYTES();
  rows[0] = UTL_DMEM_ALLOC(10, "t", 2);
  rows[2] = UTL_DMEM_ALLOC(30, "t", 3);  // rows 1 and 3 stay null
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), base + 40);
  EXPECT_EQ(UTL_MEM_FREE_2D_ARRAY(4, rows), 1);
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 0u);
  EXPECT_EQ(UTL_MEM_FREE_2D_ARRAY(3, nullptr), 1);
  EXPECT_EQ(g_quits, 0);
}

// ---- Debug mode: faults that stop the process -------------------------------

struct Fault {
  const char *name;
  void (*act)();
  const char *stdout_text;  // after the activation announcement
  bool touches_unowned_memory;
};

void *DebugBlock(unsigned int size) {
  UTL_DMEM_SET_DEBUG();
  return UTL_DMEM_ALLOC(size, "t", 1);
}

const Fault kFaults[] = {
    {"one byte past the end",
     [] {
       void *p = DebugBlock(16);
       Bytes(p)[16] = 0;
       UTL_DMEM_FREE(p, "t", 2);
     },
     "MEM_BLOCK_OVERRUN\n", false},
    {"one byte before the start",
     [] {
       void *p = DebugBlock(16);
       Bytes(p)[-1] = 0;
       UTL_DMEM_FREE(p, "t", 2);
     },
     "MEM_BLOCK_UNDERRUN\n", false},
    {"overrun found when resizing",
     [] {
       void *p = DebugBlock(5);
       Bytes(p)[8] = 0;
       UTL_DMEM_REALLOC(p, 50, "t", 2);
     },
     "MEM_BLOCK_OVERRUN\n", false},
    {"double free while unreused",
     [] {
       void *p = DebugBlock(24);
       UTL_DMEM_FREE(p, "t", 2);
       UTL_DMEM_FREE(p, "t", 3);
     },
     "MEM_BLOCK_PREVIOUSLY_FREE\n", false},
    {"head guard damaged by the block before",
     [] {
       void *p = DebugBlock(8);
       StartOf(p)[0] = 0x55;
       UTL_DMEM_FREE(p, "t", 2);
     },
     "MEM_BLOCK_PREVIOUS_OVERRUN\n", false},
    {"null file name",
     [] {
       UTL_DMEM_SET_DEBUG();
       UTL_DMEM_ALLOC(8, nullptr, 2);
     },
     "FILE_NAME_IS_NIL_FOR_ALLOCATION\n", false},
    {"heap refuses the block",
     [] {
       UTL_DMEM_SET_DEBUG();
       qxtest::FailAllocation refuse(1);
       UTL_DMEM_ALLOC(8, "t", 2);
     },
     "MEM_NOT_ENOUGH\n", false},
    {"whole-list check: trailer",
     [] {
       void *p = DebugBlock(4);
       UTL_DMEM_ALLOC(4, "t", 2);
       Bytes(p)[5] = 1;
       UTL_DMEM_CHK_HEAP_NOW();
     },
     "MEM_HEAP_OVERRUN\n", false},
    {"whole-list check: inner guard",
     [] {
       void *p = DebugBlock(4);
       UTL_DMEM_ALLOC(4, "t", 2);
       Bytes(p)[-2] = 1;
       UTL_DMEM_CHK_HEAP_NOW();
     },
     "MEM_HEAP_UNDERRUN\n", false},
    {"periodic check at every pass",
     [] {
       void *p = DebugBlock(4);
       UTL_DMEM_INITIALIZE(CapturePrint);  // keep the frequency announcement out
       UTL_DMEM_SET_FREQ(1);
       Bytes(p)[4] = 1;
       UTL_DMEM_ALLOC(4, "t", 2);
     },
     "MEM_HEAP_OVERRUN\n", false},
    {"intentional failure by sequence number",
     [] {
       UTL_DMEM_SET_DEBUG();
       UTL_DMEM_FAIL(nullptr, UTL_DMEM_NEXT_NUM());
       UTL_DMEM_ALLOC(8, "utl_demo", 9);
     },
     "\n\nIntentional failure set for \"1\" sequence number allocation.\n\n"
     "\n\nIntentional failure occurring in \"utl_demo\" line 9 sequence number 1.\n\n"
     "INTENTIONAL_FAILURE\n",
     false},
    {"intentional failure by file and line",
     [] {
       UTL_DMEM_SET_DEBUG();
       UTL_DMEM_FAIL("utl_demo", 40);
       UTL_DMEM_ALLOC(8, "utl_demo", 40);
     },
     "\n\nIntentional failure set for \"utl_demo\" line 40.\n\n"
     "\n\nIntentional failure occurring in \"utl_demo\" line 40.\n\n"
     "INTENTIONAL_FAILURE\n",
     false},
    // Reads the bytes before a plain runtime block.
    {"plain block from before debug mode",
     [] {
       void *plain = UTL_DMEM_ALLOC(64, "t", 1);
       UTL_DMEM_SET_DEBUG();
       UTL_DMEM_FREE(plain, "t", 2);
     },
     "MEM_BLOCK_BAD_POINTER\n", true},
    // A real run of writes from one block over the next one's head guard
    // (crossing the runtime heap's own bookkeeping between them).
    {"whole-list check: neighbour overrun",
     [] {
       auto *a = Bytes(DebugBlock(16));
       auto *b = Bytes(UTL_DMEM_ALLOC(16, "t", 2));
       unsigned char *to = StartOf(b) + 4;
       if (b > a && to - a < 256)
         std::memset(a, 0x55, to - a);
       else
         std::memset(StartOf(b), 0x55, 4);
       UTL_DMEM_CHK_HEAP_NOW();
     },
     "MEM_HEAP_PREVIOUS_OVERRUN\n", true},
};

TEST(DebugFaults, EachFaultWritesItsCodeAndSendsSigquit) {
  const std::string path = ScratchPath("fault");
  for (const Fault &fault : kFaults) {
    SCOPED_TRACE(fault.name);
    // Under AddressSanitizer these would be reported as the misuse they are.
    if (QX_TEST_ASAN && fault.touches_unowned_memory) continue;
    std::remove(path.c_str());
    EXPECT_EXIT(RunWithStdoutTo(path, fault.act), testing::KilledBySignal(SIGQUIT), "");
    EXPECT_EQ(ReadFile(path), kActivated + fault.stdout_text);
  }
  std::remove(path.c_str());
}

TEST_F(DebugMode, SurvivingTheSignalTheAllocatorCarriesOn) {
  CatchQuit();
  void *keep = UTL_DMEM_ALLOC(12, "t", 1);
  void *p = UTL_DMEM_ALLOC(24, "t", 2);
  UTL_DMEM_FREE(p, "t", 3);
  qxtest::CaptureStream out(stdout);
  UTL_DMEM_FREE(p, "t", 4);  // second free: reported, the block is left alone
  EXPECT_EQ(out.Text(), "MEM_BLOCK_PREVIOUSLY_FREE\nMEM_BLOCK_UNDERRUN\n");
  EXPECT_EQ(g_quits, 2);
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 12u);
  UTL_DMEM_CHK_HEAP_NOW();
  EXPECT_EQ(g_quits, 2);
  UTL_DMEM_FREE(keep, "t", 5);
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 0u);
}

TEST_F(DebugMode, DamagedBlockIsReportedByFreeAndByEachCheck) {
  CatchQuit();
  auto *p = Bytes(UTL_DMEM_ALLOC(6, "t", 1));
  p[6] = 0;
  qxtest::CaptureStream out(stdout);
  UTL_DMEM_CHK_HEAP_NOW();
  UTL_DMEM_FREE(p, "t", 2);  // trailer only: the header is sound, so it is freed
  UTL_DMEM_CHK_HEAP_NOW();
  EXPECT_EQ(out.Text(), "MEM_HEAP_OVERRUN\nMEM_BLOCK_OVERRUN\n");
  EXPECT_EQ(g_quits, 2);
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 0u);
}

TEST_F(DebugMode, WalksEndAtABlockWhoseLinksCannotBeTrusted) {
  CatchQuit();
  auto *oldest = Bytes(UTL_DMEM_ALLOC(4, "t", 1));
  void *middle = UTL_DMEM_ALLOC(4, "t", 2);
  void *newest = UTL_DMEM_ALLOC(4, "t", 3);
  oldest[4] = 0;           // would be MEM_HEAP_OVERRUN if reached
  StartOf(middle)[0] = 0;  // its links may be damaged too
  qxtest::CaptureStream out(stdout);
  UTL_DMEM_CHK_HEAP_NOW();
  EXPECT_EQ(out.Text(), "MEM_HEAP_PREVIOUS_OVERRUN\n");
  EXPECT_EQ(g_quits, 1);
  UTL_DMEM_MPA(nullptr, nullptr, 0, 0);
  EXPECT_EQ(TakePrinted(),
            "Filename t line 3 size 4 sequence number 3\n"
            "Filename t line 2 size 4 sequence number 2\n");
  UTL_DMEM_FREE(newest, "t", 4);
}

// ---- Periodic checks ---------------------------------------------------------

TEST_F(DebugMode, PeriodicCheckRunsEveryNthPass) {
  struct Case {
    int frequency;
    const char *checked_passes;  // the passes whose whole-list check finds the damage
  };
  static constexpr Case kCases[] = {
      {0, ""}, {1, "1 2 3 4 5 6 7 8 9 "}, {3, "1 4 7 "}, {4, "1 5 9 "}, {9, "1 "}};
  CatchQuit();
  auto *damaged = Bytes(UTL_DMEM_ALLOC(4, "t", 1));
  damaged[4] = 0;
  for (const Case &c : kCases) {
    SCOPED_TRACE(c.frequency);
    UTL_DMEM_SET_FREQ(c.frequency);
    EXPECT_EQ(TakePrinted(), "\n\nThe memory heap will be checked every " +
                                 std::to_string(c.frequency) + " passes. \n\n");
    // Allocations, null frees and real frees each count as one pass.
    void *block = nullptr;
    std::string checked;
    for (int pass = 1; pass <= 9; ++pass) {
      const int before = g_quits;
      switch (pass % 3) {
        case 1:
          block = UTL_DMEM_ALLOC(2, "t", 2);
          break;
        case 2:
          UTL_DMEM_FREE(nullptr, "t", 3);
          break;
        default:
          UTL_DMEM_FREE(block, "t", 4);
          break;
      }
      if (g_quits != before) checked += std::to_string(pass) + " ";
    }
    EXPECT_EQ(checked, c.checked_passes);
  }
}

TEST_F(DebugMode, NotificationAnnouncesLargeAllocations) {
  struct Case {
    unsigned int threshold, size;
    bool announced;
  };
  static constexpr Case kCases[] = {
      {0, 5000, false}, {100, 99, false}, {100, 100, true}, {100, 101, true}, {1, 0, false}};
  for (const Case &c : kCases) {
    SCOPED_TRACE(testing::Message() << c.threshold << " / " << c.size);
    UTL_DMEM_NOTIFY(c.threshold);
    EXPECT_EQ(TakePrinted(), "\n\nNotification set for memory allocations of \"" +
                                 std::to_string(c.threshold) + "\" or more bytes.\n\n");
    void *p = UTL_DMEM_ALLOC(c.size, "utl_big", 12);
    const std::string expected = c.announced
                                     ? "\n\nNOTIFICATION:  File utl_big line 12 allocated " +
                                           std::to_string(c.size) + " bytes.\n\n"
                                     : "";
    EXPECT_EQ(TakePrinted(), expected);
    UTL_DMEM_FREE(p, "t", 1);
  }
}

// ---- Intentional failures ------------------------------------------------------

TEST_F(DebugMode, SequenceFailureFiresOnceAtTheNextAllocation) {
  CatchQuit();
  void *earlier = UTL_DMEM_ALLOC(1, "t", 1);
  const unsigned int next = UTL_DMEM_NEXT_NUM();
  UTL_DMEM_FAIL(nullptr, next);
  EXPECT_EQ(TakePrinted(), "\n\nIntentional failure set for \"" + std::to_string(next) +
                               "\" sequence number allocation.\n\n");
  qxtest::CaptureStream out(stdout);
  void *hit = UTL_DMEM_ALLOC(8, "utl_seq", 31);
  EXPECT_NE(hit, nullptr);  // surviving the signal, the allocation proceeds
  EXPECT_EQ(g_quits, 1);
  EXPECT_EQ(TakePrinted(),
            "\n\nIntentional failure occurring in \"utl_seq\" line 31 sequence number " +
                std::to_string(next) + ".\n\n");
  EXPECT_EQ(out.Text(), "INTENTIONAL_FAILURE\n");
  EXPECT_EQ(WordAt(StartOf(hit) + kSequenceAt), next);
  void *after = UTL_DMEM_ALLOC(8, "utl_seq", 31);
  EXPECT_EQ(g_quits, 1);
  EXPECT_EQ(TakePrinted(), "");
  for (void *p : {earlier, hit, after})
    UTL_DMEM_FREE(p, "t", 2);
}

TEST_F(DebugMode, FileFailureFiresOnlyAtItsCallSite) {
  struct Call {
    const char *file;
    int line;
    bool fires;
  };
  static constexpr Call kCalls[] = {{"utl_demo", 41, false}, {"utl_dem", 40, false},
                                    {"UTL_DEMO", 40, false}, {"utl_demo.c", 40, false},
                                    {"utl_demo", 40, true},  {"utl_demo", 40, false}};
  CatchQuit();
  const unsigned int before = UTL_DMEM_NEXT_NUM();
  UTL_DMEM_FAIL("utl_demo", 40);
  EXPECT_EQ(TakePrinted(), "\n\nIntentional failure set for \"utl_demo\" line 40.\n\n");
  EXPECT_EQ(UTL_DMEM_NEXT_NUM(), before + 1);  // the request's own copy of the name
  const unsigned int copy_bytes = UTL_DMEM_ALLOCATED_BYTES();
  EXPECT_EQ(copy_bytes, sizeof "utl_demo");
  for (const Call &call : kCalls) {
    SCOPED_TRACE(testing::Message() << call.file << ":" << call.line);
    const int quits = g_quits;
    UTL_DMEM_FREE(UTL_DMEM_ALLOC(4, call.file, call.line), "t", 1);
    EXPECT_EQ(g_quits - quits, call.fires ? 1 : 0);
    EXPECT_EQ(TakePrinted(),
              call.fires ? "\n\nIntentional failure occurring in \"utl_demo\" line 40.\n\n" : "");
  }
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 0u);  // the copy went with the request
}

TEST_F(DebugMode, NewRequestsReplaceTheFileRequest) {
  CatchQuit();
  UTL_DMEM_FAIL("utl_a", 1);
  UTL_DMEM_FAIL("utl_b", 2);  // replaces utl_a
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), sizeof "utl_b");
  UTL_DMEM_FAIL(nullptr, 0);  // drops utl_b, sets no sequence request
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 0u);
  TakePrinted();
  for (const char *file : {"utl_a", "utl_b"})
    UTL_DMEM_FREE(UTL_DMEM_ALLOC(4, file, file[4] == 'a' ? 1 : 2), "t", 1);
  EXPECT_EQ(g_quits, 0);
  EXPECT_EQ(TakePrinted(), "");
}

// ---- Block listing -----------------------------------------------------------

class Listing : public DebugMode {
 protected:
  void SetUp() override {
    DebugMode::SetUp();
    first_ = UTL_DMEM_NEXT_NUM();
    blocks_[0] = UTL_DMEM_ALLOC(8, "alpha", 10);
    blocks_[1] = UTL_DMEM_ALLOC(16, "beta", 20);
    blocks_[2] = UTL_DMEM_ALLOC(0, "alpha", 30);
    blocks_[3] = UTL_DMEM_ALLOC(4, "neg", -5);
  }
  void TearDown() override {
    for (void *p : blocks_)
      UTL_DMEM_FREE(p, "t", 1);
  }
  // The line of block i (0 = oldest); `signed_fields` for the %d form.
  std::string Line(int i, bool signed_fields = false) const {
    static constexpr const char *kFiles[] = {"alpha", "beta", "alpha", "neg"};
    static constexpr const char *kLines[] = {"10", "20", "30", "4294967291"};
    static constexpr const char *kSizes[] = {"8", "16", "0", "4"};
    const char *line = signed_fields && i == 3 ? "-5" : kLines[i];
    return std::string("Filename ") + kFiles[i] + " line " + line + " size " + kSizes[i] +
           " sequence number " + std::to_string(first_ + i) + "\n";
  }
  unsigned int first_ = 0;
  void *blocks_[4] = {};
};

TEST_F(Listing, SelectsByRangeAndFileNewestFirst) {
  struct Case {
    const char *filter;
    unsigned int first_offset, last_offset;  // added to the first sequence number
    bool last_open;                          // last = 0
    const char *expected;                    // block indices, newest first
  };
  static constexpr Case kCases[] = {{nullptr, 0, 0, true, "3210"}, {"alpha", 0, 0, true, "20"},
                                    {nullptr, 1, 1, false, "1"},   {nullptr, 1, 0, true, "321"},
                                    {nullptr, 0, 2, false, "210"}, {"gamma", 0, 0, true, ""},
                                    {"beta", 2, 3, false, ""},     {"neg", 0, 0, true, "3"}};
  const std::string path = ScratchPath("mpa");
  for (const Case &c : kCases) {
    SCOPED_TRACE(testing::Message() << (c.filter ? c.filter : "(all)") << " " << c.first_offset);
    const unsigned int last = c.last_open ? 0 : first_ + c.last_offset;
    std::string printed, filed;
    for (const char *at = c.expected; *at; ++at) {
      printed += Line(*at - '0', c.filter != nullptr);
      filed += Line(*at - '0');
    }
    EXPECT_EQ(UTL_DMEM_MPA(nullptr, c.filter, first_ + c.first_offset, last), 1);
    EXPECT_EQ(TakePrinted(), printed);
    EXPECT_EQ(UTL_DMEM_MPA(path.c_str(), c.filter, first_ + c.first_offset, last), 1);
    EXPECT_EQ(ReadFile(path), filed);
    EXPECT_EQ(TakePrinted(), "");
  }
  std::remove(path.c_str());
}

TEST_F(Listing, FirstNumberBeyondTheNewestIsOutOfRange) {
  const unsigned int beyond = first_ + 9;
  const std::string expected = "The sequence number " + std::to_string(beyond) +
                               " you requested is out of range.\nThe next available sequence "
                               "number is " +
                               std::to_string(first_ + 4) + ".\n";
  EXPECT_EQ(UTL_DMEM_MPA(nullptr, nullptr, beyond, 0), 1);
  EXPECT_EQ(TakePrinted(), expected);
  const std::string path = ScratchPath("mpa_range");
  EXPECT_EQ(UTL_DMEM_MPA(path.c_str(), nullptr, beyond, 0), 1);
  EXPECT_EQ(ReadFile(path), expected);
  std::remove(path.c_str());
}

TEST_F(Listing, PendingInterruptStopsTheWalk) {
  UTL_INTR_SIMULATE();
  EXPECT_EQ(UTL_DMEM_MPA(nullptr, nullptr, 0, 0), 1);
  EXPECT_EQ(TakePrinted(), "");
  UTL_INTR_CLEAR();
  EXPECT_EQ(UTL_DMEM_MPA(nullptr, "beta", 0, 0), 1);
  EXPECT_EQ(TakePrinted(), Line(1, true));
}

TEST_F(Listing, UnopenableFileIsAnnounced) {
  EXPECT_EQ(UTL_DMEM_MPA("/nonexistent-qx-dir/list.txt", nullptr, 0, 0), 0);
  EXPECT_EQ(TakePrinted(), "\n\nSorry, couldn't open file /nonexistent-qx-dir/list.txt./n\n");
}

}  // namespace
