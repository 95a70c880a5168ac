// Error stack: recording, overflow, traces, barriers and interrogation.
#include "utl_error.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "qx_test.h"
#include "utl_mem.h"

namespace {

using qxtest::Entry;
using qxtest::StackTop;
using qxtest::TopError;
using qxtest::TraceFill;

std::string Repeat(char c, int n) {
  return std::string(static_cast<std::size_t>(n), c);
}

void Set(const char *code, const char *severity = "FATAL", const char *routine = "R") {
  UTL_ERROR_SET("UTL", "TEST", severity, code, routine);
}

// A comparable picture of the whole stack, without what emptying deliberately
// keeps (severity, message) and the first line of an empty entry, which the
// next record overwrites.
std::string Shape() {
  std::string s = "top=" + std::to_string(StackTop()) + " fill=" + std::to_string(TraceFill());
  for (int e = 0; e < qx::error::kEntries; ++e) {
    const auto &entry = qx::error::g_stack.entries[e];
    s += " [" + std::string(entry.product) + "/" + entry.code +
         " set=" + std::to_string(entry.is_set) + " bar=" + std::to_string(entry.barrier) +
         " tr=" + std::to_string(entry.trace_count) + "@" +
         std::to_string(entry.is_set ? entry.first_trace : -1) + "]";
  }
  return s;
}

TEST(ErrorStack, FreshStackAnswersSuccess) {
  EXPECT_EQ(UTL_ERROR_IS_SET(), 0);
  EXPECT_STREQ(UTL_ERROR_GET_SEVERITY(), "SUCCESS");
  EXPECT_STREQ(UTL_ERROR_GET_MESSAGE(), "No error message.");
  EXPECT_EQ(UTL_ERROR_EXCEPTION_CODE(), nullptr);
  char *code = nullptr;
  EXPECT_EQ(UTL_ERROR_SAVE(nullptr, nullptr, nullptr, &code), -1);
  EXPECT_EQ(code, nullptr);
  EXPECT_EQ(UTL_ERROR_IS_FATAL(), 0);
  EXPECT_EQ(UTL_ERROR_ANY_FATAL(), 0);
}

TEST(ErrorStack, FieldsAreCutToTheirWidths) {
  const std::string long40 = Repeat('P', 40);
  const std::string sev20 = Repeat('S', 20);
  const std::string routine100 = Repeat('r', 100);
  UTL_ERROR_SET(long40.c_str(), long40.c_str(), sev20.c_str(), long40.c_str(), routine100.c_str());
  UTL_ERROR_SET_MESSAGE(Repeat('m', 100).c_str());
  UTL_ERROR_ADD_TRACE(Repeat('t', 100).c_str());
  auto top = TopError();
  EXPECT_EQ(top.product, Repeat('P', 31));
  EXPECT_EQ(top.facility, Repeat('P', 31));
  EXPECT_EQ(top.code, Repeat('P', 31));
  EXPECT_EQ(top.severity, Repeat('S', 15));
  EXPECT_EQ(top.message, Repeat('m', 80));
  ASSERT_EQ(top.traces.size(), 2u);
  EXPECT_EQ(top.traces[0], Repeat('r', 79));
  EXPECT_EQ(top.traces[1], Repeat('t', 79));
}

TEST(ErrorStack, FileAndLineTracesCutRoutineAndFile) {
  const std::string routine = Repeat('r', 60), file = Repeat('f', 40);
  UTL_ERROR_SET_FILENAME("UTL", "X", "ERROR", "C", routine.c_str(), file.c_str(), 42);
  UTL_ERROR_ADD_TRACE_FILENAME("caller", "main.c", 7);
  auto top = TopError();
  ASSERT_EQ(top.traces.size(), 2u);
  EXPECT_EQ(top.traces[0], Repeat('r', 50) + ": " + Repeat('f', 27));  // cut at 79 characters
  EXPECT_EQ(top.traces[1], "caller: main.c(7)");
  UTL_ERROR_CLEAR();
  UTL_ERROR_SET_FILENAME("UTL", "X", "ERROR", "C", "f", Repeat('g', 40).c_str(), 3);
  EXPECT_EQ(TopError().traces[0], "f: " + Repeat('g', 30) + "(3)");
}

TEST(ErrorStack, SecondRecordTakesNextEntryAndLaterTracesFollowIt) {
  Set("FIRST", "WARNING", "inner");
  Set("SECOND", "FATAL", "outer");
  EXPECT_EQ(UTL_ERROR_ADD_TRACE("caller (0)"), 2);
  EXPECT_EQ(StackTop(), 1);
  EXPECT_EQ(Entry(0).traces, std::vector<std::string>{"inner"});
  EXPECT_EQ(Entry(1).traces, (std::vector<std::string>{"outer", "caller (0)"}));
  EXPECT_STREQ(UTL_ERROR_EXCEPTION_CODE(), "SECOND");
}

TEST(ErrorStack, NinthEntryIsTheLastAndLaterRecordsAreDropped) {
  for (int i = 0; i < 9; ++i)
    EXPECT_EQ(UTL_ERROR_SET("UTL", "T", "INFO", "E", "r"), 1);
  EXPECT_EQ(StackTop(), 8);
  EXPECT_EQ(UTL_ERROR_SET("UTL", "T", "FATAL", "DROPPED", "r"), 0);
  EXPECT_STREQ(UTL_ERROR_EXCEPTION_CODE(), "E");
  EXPECT_EQ(qx::error::g_stack.overflow, 1);
}

TEST(ErrorStack, RecordAfterEightPushesIsDroppedThoughTheEntryIsEmpty) {
  for (int i = 0; i < 8; ++i)
    UTL_ERROR_PUSH();
  UTL_ERROR_PUSH();  // ignored at the top
  EXPECT_EQ(StackTop(), 8);
  EXPECT_EQ(UTL_ERROR_SET("UTL", "T", "FATAL", "E", "r"), 0);
  EXPECT_EQ(UTL_ERROR_IS_SET(), 0);
}

TEST(ErrorStack, TracePoolHoldsTwentyThreeLines) {
  Set("E");
  for (int i = 1; i < 23; ++i)
    EXPECT_EQ(UTL_ERROR_ADD_TRACE("t"), i);
  EXPECT_EQ(UTL_ERROR_ADD_TRACE("24th"), 23);  // dropped: the fill count
  EXPECT_EQ(TopError().traces.size(), 23u);
  Set("LATE");  // recorded, but without trace lines
  EXPECT_STREQ(UTL_ERROR_EXCEPTION_CODE(), "LATE");
  EXPECT_TRUE(TopError().traces.empty());
}

TEST(ErrorStack, TraceWithoutErrorRecordsProgramError) {
  EXPECT_EQ(UTL_ERROR_ADD_TRACE("lonely (3)"), 1);
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/ERROR/WARNING/PROGRAM_ERROR");
  EXPECT_EQ(TopError().traces, (std::vector<std::string>{"UTL_ERROR_ADD_TRACE", "lonely (3)"}));
}

TEST(ErrorStack, MessageAndSeverityChangeOnlyASetEntry) {
  UTL_ERROR_SET_MESSAGE("ignored");
  UTL_ERROR_SET_SEVERITY("INFO");
  EXPECT_STREQ(UTL_ERROR_GET_MESSAGE(), "No error message.");
  EXPECT_STREQ(UTL_ERROR_GET_SEVERITY(), "SUCCESS");
  Set("E", "FATAL");
  UTL_ERROR_SET_MESSAGE("cell volume is zero");
  UTL_ERROR_SET_SEVERITY("warning");
  EXPECT_STREQ(UTL_ERROR_GET_MESSAGE(), "cell volume is zero");
  EXPECT_STREQ(UTL_ERROR_GET_SEVERITY(), "warning");
  EXPECT_EQ(UTL_ERROR_IS_WARNING(), 1);
  EXPECT_EQ(UTL_ERROR_IS_FATAL(), 0);
}

TEST(ErrorStack, PredicatesIgnoreCase) {
  struct Row {
    const char *code, *severity;
    int is, end_loop, abort, fatal, warning, info;
  };
  constexpr Row kRows[] = {
      {"UIMS_USER_END_LOOP", "info", 0, 1, 0, 0, 0, 1},
      {"uims_user_cancel", "Warning", 0, 0, 1, 0, 1, 0},
      {"list_empty", "FATAL", 1, 0, 0, 1, 0, 0},
      {"LIST_EMPTYX", "ERROR", 0, 0, 0, 0, 0, 0},
  };
  for (const Row &row : kRows) {
    UTL_ERROR_SET("UTL", "T", row.severity, row.code, "r");
    SCOPED_TRACE(row.code);
    EXPECT_EQ(UTL_ERROR_IS("LIST_EMPTY"), row.is);
    EXPECT_EQ(UTL_ERROR_IS_END_LOOP(), row.end_loop);
    EXPECT_EQ(UTL_ERROR_IS_ABORT(), row.abort);
    EXPECT_EQ(UTL_ERROR_IS_FATAL(), row.fatal);
    EXPECT_EQ(UTL_ERROR_IS_WARNING(), row.warning);
    EXPECT_EQ(UTL_ERROR_IS_INFO(), row.info);
    UTL_ERROR_CLEAR();
  }
  EXPECT_EQ(UTL_ERROR_IS(nullptr), 0);
}

TEST(ErrorStack, ClearedFatalStillAnswersSeverityPredicates) {
  Set("E", "FATAL");
  UTL_ERROR_CLEAR();
  EXPECT_EQ(UTL_ERROR_IS_SET(), 0);
  EXPECT_STREQ(UTL_ERROR_GET_SEVERITY(), "SUCCESS");
  EXPECT_EQ(UTL_ERROR_IS_FATAL(), 1);
  EXPECT_EQ(UTL_ERROR_ANY_FATAL(), 1);
}

TEST(ErrorStack, AnyFatalLooksBelowTheTop) {
  Set("A", "fatal");
  Set("B", "WARNING");
  EXPECT_EQ(UTL_ERROR_IS_FATAL(), 0);
  EXPECT_EQ(UTL_ERROR_ANY_FATAL(), 1);
}

TEST(ErrorStack, InterpretCopiesTheTopIdentity) {
  char product[32] = "x", facility[32] = "x", severity[16] = "x", code[32] = "x";
  UTL_ERROR_INTERPRET(product, facility, severity, code);
  EXPECT_STREQ(severity, "SUCCESS");
  EXPECT_STREQ(code, "");
  UTL_ERROR_SET("QX", "3D_GEOM", "ERROR", "ZERO_LENGTH_VECTOR", "r");
  UTL_ERROR_INTERPRET(product, facility, severity, code);
  EXPECT_STREQ(product, "QX");
  EXPECT_STREQ(facility, "3D_GEOM");
  EXPECT_STREQ(severity, "ERROR");
  EXPECT_STREQ(code, "ZERO_LENGTH_VECTOR");
  UTL_ERROR_INTERPRET(nullptr, nullptr, nullptr, code);  // null buffers are skipped
}

TEST(ErrorStack, SaveDuplicatesTheRequestedTexts) {
  UTL_ERROR_SET("UTL", "HASH", "WARNING", "DATA_OVFL", "r");
  char *product = nullptr, *severity = nullptr, *code = nullptr;
  ASSERT_EQ(UTL_ERROR_SAVE(&product, nullptr, &severity, &code), 1);
  EXPECT_STREQ(product, "UTL");
  EXPECT_STREQ(severity, "WARNING");
  EXPECT_STREQ(code, "DATA_OVFL");
  for (char *p : {product, severity, code})
    UTL_DMEM_FREE(p, "test", __LINE__);
}

TEST(ErrorStack, SaveReportsAFailedCopyAfterTheCopiesMade) {
  // Copies are made in the order product, facility, code, severity.
  for (unsigned long nth = 1; nth <= 4; ++nth) {
    UTL_ERROR_SET("UTL", "HASH", "WARNING", "DATA_OVFL", "r");
    char *out[4] = {nullptr, nullptr, nullptr, nullptr};
    {
      qxtest::FailAllocation fail(nth);
      EXPECT_EQ(UTL_ERROR_SAVE(&out[0], &out[1], &out[3], &out[2]), 0) << nth;
    }
    for (unsigned long i = 0; i < 4; ++i)
      EXPECT_EQ(out[i] != nullptr, i + 1 < nth) << nth;
    EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
    EXPECT_EQ(TopError().traces,
              (std::vector<std::string>{"UTL_MEM_ALLOC", "UTL_DSTR_SAVE", "UTL_ERROR_SAVE"}));
    for (char *p : out)
      UTL_DMEM_FREE(p, "test", __LINE__);
    UTL_ERROR_CLEAR();
    UTL_ERROR_CLEAR();
  }
}

TEST(ErrorBarrier, PushRecordPopRestoresTheStack) {
  Set("KEPT", "WARNING");
  UTL_ERROR_ADD_TRACE("kept (1)");
  const std::string before = Shape();
  UTL_ERROR_PUSH();
  Set("CLEANUP_1");
  Set("CLEANUP_2");
  UTL_ERROR_ADD_TRACE("cleanup (0)");
  UTL_ERROR_POP();
  EXPECT_EQ(Shape(), before);
  EXPECT_STREQ(UTL_ERROR_EXCEPTION_CODE(), "KEPT");
  UTL_ERROR_PUSH();
  UTL_ERROR_POP();
  EXPECT_EQ(Shape(), before);
}

TEST(ErrorBarrier, PopWithoutBarrierDoesNothing) {
  Set("A");
  Set("B");
  const std::string before = Shape();
  UTL_ERROR_POP();
  EXPECT_EQ(Shape(), before);
}

TEST(ErrorBarrier, ClearStopsAtTheNearestBarrier) {
  Set("OUTER");
  UTL_ERROR_PUSH();
  Set("INNER_1");
  Set("INNER_2");
  UTL_ERROR_CLEAR();
  EXPECT_EQ(UTL_ERROR_IS_SET(), 0);
  EXPECT_EQ(StackTop(), 1);
  EXPECT_EQ(TraceFill(), 1);  // OUTER's line survives
  UTL_ERROR_POP();
  EXPECT_STREQ(UTL_ERROR_EXCEPTION_CODE(), "OUTER");
  UTL_ERROR_CLEAR();
  EXPECT_EQ(StackTop(), 0);
  EXPECT_EQ(TraceFill(), 0);
}

TEST(CatchNonfatal, NoErrorContinuesWithStateUnchanged) {
  int state = 0;
  EXPECT_EQ(UTL_ERROR_CATCH_NONFATAL(&state), 1);
  EXPECT_EQ(state, 0);
}

TEST(CatchNonfatal, KeepsTheFirstWarningOnly) {
  int state = 0;
  Set("FIRST", "WARNING", "step1");
  EXPECT_EQ(UTL_ERROR_CATCH_NONFATAL(&state), 1);
  EXPECT_EQ(state, 1);
  Set("SECOND", "INFO", "step2");
  EXPECT_EQ(UTL_ERROR_CATCH_NONFATAL(&state), 1);
  EXPECT_EQ(Entry(0).code, "FIRST");
  EXPECT_EQ(Entry(0).traces, std::vector<std::string>{"step1"});
  EXPECT_EQ(UTL_ERROR_IS_SET(), 0);  // the barrier entry above it is empty
  EXPECT_EQ(TraceFill(), 1);
}

TEST(CatchNonfatal, FatalAfterWarningsLeavesOnlyTheFatal) {
  int state = 0;
  Set("FIRST", "WARNING", "step1");
  UTL_ERROR_CATCH_NONFATAL(&state);
  Set("SECOND", "WARNING", "step2");
  UTL_ERROR_CATCH_NONFATAL(&state);
  UTL_ERROR_SET("UTL", "LIST", "FATAL", "LIST_EMPTY", "step3");
  UTL_ERROR_SET_MESSAGE("lost");
  UTL_ERROR_ADD_TRACE("lost too");
  EXPECT_EQ(UTL_ERROR_CATCH_NONFATAL(&state), 0);
  EXPECT_EQ(StackTop(), 0);
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/LIST/FATAL/LIST_EMPTY");
  EXPECT_EQ(TopError().traces, std::vector<std::string>{"UTL_ERROR_CATCH_NONFATAL"});
  EXPECT_STREQ(UTL_ERROR_GET_MESSAGE(), "");
  EXPECT_EQ(qx::error::g_stack.entries[1].barrier, 0);
}

TEST(CatchNonfatal, FatalFirstStopsWithTheStackUnchanged) {
  int state = 0;
  Set("BAD", "FATAL", "step1");
  const std::string before = Shape();
  EXPECT_EQ(UTL_ERROR_CATCH_NONFATAL(&state), 0);
  EXPECT_EQ(state, 0);
  EXPECT_EQ(Shape(), before);
}

}  // namespace
