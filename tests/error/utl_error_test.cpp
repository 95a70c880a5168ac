// Error stack: recording, overflow, traces, barriers and interrogation.
#include "utl_error.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qx_test.h"
#include "utl_mem.h"

namespace {

using qxtest::Entry;
using qxtest::StackTop;
using qxtest::TopError;
using qxtest::TraceFill;
using Lines = std::vector<std::string>;

std::string Repeat(char c, int n) {
  return std::string(static_cast<std::size_t>(n), c);
}

void Set(const char *code, const char *severity = "FATAL", const char *routine = "R") {
  UTL_ERROR_SET("UTL", "TEST", severity, code, routine);
}

// The whole stack as text, without what emptying deliberately keeps (severity,
// message) and the first line of an empty entry, which the next record
// overwrites.
std::string Shape() {
  std::string s = "top=" + std::to_string(StackTop()) + " fill=" + std::to_string(TraceFill());
  for (const auto &e : qx::error::g_stack.entries)
    s += " [" + std::string(e.product) + "/" + e.code + " " + std::to_string(e.is_set) +
         std::to_string(e.barrier) + " " + std::to_string(e.trace_count) + "@" +
         std::to_string(e.is_set ? e.first_trace : -1) + "]";
  return s;
}

TEST(ErrorStack, FreshStackAnswersSuccess) {
  EXPECT_EQ(UTL_ERROR_IS_SET(), 0);
  EXPECT_STREQ(UTL_ERROR_GET_SEVERITY(), "SUCCESS");
  EXPECT_STREQ(UTL_ERROR_GET_MESSAGE(), "No error message.");
  EXPECT_EQ(UTL_ERROR_EXCEPTION_CODE(), nullptr);
  char *code = nullptr;
  EXPECT_EQ(UTL_ERROR_SAVE(nullptr, nullptr, nullptr, &code), -1);
  EXPECT_EQ(UTL_ERROR_IS_FATAL() + UTL_ERROR_ANY_FATAL(), 0);
}

TEST(ErrorStack, TextsAreCutToTheirFieldWidths) {
  const std::string p40 = Repeat('P', 40);
  UTL_ERROR_SET(p40.c_str(), p40.c_str(), Repeat('S', 20).c_str(), p40.c_str(),
                Repeat('r', 100).c_str());
  UTL_ERROR_SET_MESSAGE(Repeat('m', 100).c_str());
  UTL_ERROR_ADD_TRACE(Repeat('t', 100).c_str());
  UTL_ERROR_ADD_TRACE_FILENAME("caller", "main.c", 7);
  auto top = TopError();
  EXPECT_EQ(top.product + top.facility + top.code, Repeat('P', 93));
  EXPECT_EQ(top.severity, Repeat('S', 15));
  EXPECT_EQ(top.message, Repeat('m', 80));
  EXPECT_EQ(top.traces, (Lines{Repeat('r', 79), Repeat('t', 79), "caller: main.c(7)"}));
  // Routine and file are cut to 50 and 30 before the 79-character line limit.
  UTL_ERROR_SET_FILENAME("UTL", "X", "ERROR", "C", "f", Repeat('g', 40).c_str(), 3);
  EXPECT_EQ(TopError().traces[0], "f: " + Repeat('g', 30) + "(3)");
  UTL_ERROR_SET_FILENAME("UTL", "X", "ERROR", "C", Repeat('r', 60).c_str(), "file.c", 3);
  EXPECT_EQ(TopError().traces[0], Repeat('r', 50) + ": file.c(3)");
}

TEST(ErrorStack, RecordsStackUpToTheNinthEntry) {
  Set("FIRST", "WARNING", "inner");
  Set("SECOND", "FATAL", "outer");
  EXPECT_EQ(UTL_ERROR_ADD_TRACE("caller (0)"), 2);  // goes to the newer entry
  EXPECT_EQ(Entry(0).traces, Lines{"inner"});
  EXPECT_EQ(Entry(1).traces, (Lines{"outer", "caller (0)"}));
  for (int i = 2; i < 9; ++i)
    EXPECT_EQ(UTL_ERROR_SET("UTL", "T", "INFO", "E", "r"), 1);
  EXPECT_EQ(StackTop(), 8);
  EXPECT_EQ(UTL_ERROR_SET("UTL", "T", "FATAL", "DROPPED", "r"), 0);
  EXPECT_STREQ(UTL_ERROR_EXCEPTION_CODE(), "E");
  EXPECT_EQ(qx::error::g_stack.overflow, 1);
}

TEST(ErrorStack, RecordAfterEightPushesIsDroppedThoughTheEntryIsEmpty) {
  for (int i = 0; i < 9; ++i)
    UTL_ERROR_PUSH();  // the ninth is ignored
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
  EXPECT_EQ(TopError().traces, (Lines{"UTL_ERROR_ADD_TRACE", "lonely (3)"}));
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
}

TEST(ErrorStack, SeverityPredicatesStillAnswerAfterClear) {
  Set("A", "fatal");
  Set("B", "WARNING");
  EXPECT_EQ(UTL_ERROR_IS_FATAL(), 0);
  EXPECT_EQ(UTL_ERROR_ANY_FATAL(), 1);  // looks below the top
  UTL_ERROR_CLEAR();
  EXPECT_EQ(UTL_ERROR_IS_SET(), 0);
  EXPECT_STREQ(UTL_ERROR_GET_SEVERITY(), "SUCCESS");
  EXPECT_EQ(UTL_ERROR_IS_FATAL(), 1);  // entry 0's old severity
  EXPECT_EQ(UTL_ERROR_ANY_FATAL(), 1);
}

TEST(ErrorStack, InterpretAndSaveCopyTheTopIdentity) {
  char product[32], facility[32], severity[16] = "x", code[32];
  UTL_ERROR_INTERPRET(nullptr, nullptr, severity, nullptr);
  EXPECT_STREQ(severity, "SUCCESS");
  UTL_ERROR_SET("QX", "3D_GEOM", "ERROR", "ZERO_LENGTH_VECTOR", "r");
  UTL_ERROR_INTERPRET(product, facility, severity, code);
  EXPECT_EQ(std::string(product) + facility + severity + code, "QX3D_GEOMERRORZERO_LENGTH_VECTOR");
  char *saved[3] = {};
  ASSERT_EQ(UTL_ERROR_SAVE(&saved[0], nullptr, &saved[1], &saved[2]), 1);
  EXPECT_EQ(std::string(saved[0]) + saved[1] + saved[2], "QXERRORZERO_LENGTH_VECTOR");
  for (char *p : saved)
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
    EXPECT_EQ(TopError().traces, (Lines{"UTL_MEM_ALLOC", "UTL_DSTR_SAVE", "UTL_ERROR_SAVE"}));
    for (char *p : out)
      UTL_DMEM_FREE(p, "test", __LINE__);
    UTL_ERROR_CLEAR();
    UTL_ERROR_CLEAR();
  }
}

TEST(ErrorBarrier, PopRestoresTheStackAsAtThePush) {
  Set("KEPT", "WARNING");
  UTL_ERROR_ADD_TRACE("kept (1)");
  const std::string before = Shape();
  UTL_ERROR_POP();  // no barrier anywhere: nothing happens
  EXPECT_EQ(Shape(), before);
  UTL_ERROR_PUSH();
  Set("CLEANUP_1");
  Set("CLEANUP_2");
  UTL_ERROR_ADD_TRACE("cleanup (0)");
  UTL_ERROR_POP();
  EXPECT_EQ(Shape(), before);
  UTL_ERROR_PUSH();
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
  EXPECT_EQ(StackTop() + TraceFill(), 0);
}

TEST(CatchNonfatal, KeepsTheFirstWarningAndLetsAFatalReplaceIt) {
  int state = 0;
  EXPECT_EQ(UTL_ERROR_CATCH_NONFATAL(&state), 1);  // nothing set: state unchanged
  EXPECT_EQ(state, 0);
  Set("FIRST", "WARNING", "step1");
  EXPECT_EQ(UTL_ERROR_CATCH_NONFATAL(&state), 1);
  EXPECT_EQ(state, 1);
  Set("SECOND", "INFO", "step2");
  EXPECT_EQ(UTL_ERROR_CATCH_NONFATAL(&state), 1);
  EXPECT_EQ(Entry(0).code, "FIRST");
  EXPECT_EQ(UTL_ERROR_IS_SET() + TraceFill(), 1);  // empty barrier above FIRST's one line
  UTL_ERROR_SET("UTL", "LIST", "FATAL", "LIST_EMPTY", "step3");
  UTL_ERROR_SET_MESSAGE("lost");
  UTL_ERROR_ADD_TRACE("lost too");
  EXPECT_EQ(UTL_ERROR_CATCH_NONFATAL(&state), 0);
  EXPECT_EQ(StackTop(), 0);
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/LIST/FATAL/LIST_EMPTY");
  EXPECT_EQ(TopError().traces, Lines{"UTL_ERROR_CATCH_NONFATAL"});
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
