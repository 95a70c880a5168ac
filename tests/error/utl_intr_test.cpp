// Tests of the break flag, its handlers (called directly and delivered as a
// real SIGINT) and the three signal-disposition functions.
#include <signal.h>

#include <cerrno>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "qx_test.h"
#include "utl_error.h"
#include "utl_intr.h"

namespace {

const std::string kCancel = "** CANCEL **\a\n";
int g_calls = 0, g_pending_in_callback = -1;
void Callback() {
  ++g_calls;
  g_pending_in_callback = UTL_INTR_PENDING();
}
void OtherCallback() {}

TEST(IntrFlag, FlagCallbackTimeoutAndUserCancelError) {
  EXPECT_EQ(UTL_INTR_PENDING(), 0);
  UTL_INTR_SIMULATE();
  UTL_INTR_SIMULATE();
  EXPECT_EQ(UTL_INTR_PENDING(), 1);
  EXPECT_EQ(UTL_INTR_PENDING(), 1);  // reading clears nothing
  UTL_INTR_CLEAR();
  EXPECT_EQ(UTL_INTR_PENDING(), 0);
  EXPECT_EQ(UTL_INTR_CALLBACK(Callback), nullptr);
  EXPECT_EQ(UTL_INTR_CALLBACK(OtherCallback), Callback);
  EXPECT_EQ(UTL_INTR_CALLBACK(nullptr), OtherCallback);
  for (int timeout : {0, -1, 2147483647})
    EXPECT_EQ(UTL_INTR_SET_TIMEOUT(timeout), timeout);
  EXPECT_EQ(UTL_INTR_SET_ERROR("main_loop (2)"), 1);  // the pool index of the appended line
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/INTR/WARNING/UIMS_USER_CANCEL");
  EXPECT_EQ(qxtest::TopError().traces,
            (std::vector<std::string>{"UTL_INTR_SET_ERROR", "main_loop (2)"}));
  EXPECT_EQ(UTL_ERROR_IS_ABORT(), 1);
  EXPECT_EQ(UTL_INTR_PENDING(), 0);  // the flag is left alone
}

TEST(IntrHandlers, DirectCallsFollowTheirEvent) {
  constexpr int kSimulate = -2, kCatch = -1;  // other events go to UTL_INTR_CATCH_NT
  // Event, callback installed; then: prints, raises the flag, calls back.
  static constexpr std::tuple<int, bool, bool, bool, bool> kCases[] = {
      {kSimulate, true, false, true, false}, {kCatch, false, true, true, false},
      {kCatch, true, true, true, true},      {0, false, true, true, false},
      {0, true, true, true, true},           {1, false, false, false, false},
      {1, true, false, false, true},         {6, true, false, false, true}};
  for (const auto &[event, with_callback, prints, raises, calls_back] : kCases) {
    SCOPED_TRACE(testing::Message() << event << (with_callback ? " with callback" : ""));
    UTL_INTR_CLEAR();
    g_calls = 0;
    g_pending_in_callback = -1;
    UTL_INTR_CALLBACK(with_callback ? Callback : nullptr);
    qxtest::CaptureStream out(stdout);
    if (event == kSimulate)
      UTL_INTR_SIMULATE();
    else if (event == kCatch)
      UTL_INTR_CATCH(SIGINT);
    else
      EXPECT_EQ(UTL_INTR_CATCH_NT(event), 1);
    EXPECT_EQ(out.Text(), prints ? kCancel : "");
    EXPECT_EQ(UTL_INTR_PENDING(), raises);
    EXPECT_EQ(g_calls, calls_back);
    EXPECT_EQ(g_pending_in_callback, calls_back ? raises : -1);  // raised before the call
  }
}

TEST(IntrHandlers, RealSigintThroughSignalAndSigaction) {
  UTL_INTR_CALLBACK(Callback);
  ASSERT_NE(signal(SIGINT, UTL_INTR_CATCH), SIG_ERR);  // installable without a cast
  qxtest::CaptureStream out(stdout);
  ASSERT_EQ(raise(SIGINT), 0);
  EXPECT_EQ(out.Text(), kCancel);
  EXPECT_EQ(UTL_INTR_PENDING(), 1);
  struct sigaction action = {};
  action.sa_handler = UTL_INTR_CATCH;
  ASSERT_EQ(sigaction(SIGINT, &action, nullptr), 0);
  errno = ERANGE;
  ASSERT_EQ(raise(SIGINT), 0);
  EXPECT_EQ(errno, ERANGE);  // kept across the handler
  EXPECT_EQ(out.Text(), kCancel + kCancel);
  EXPECT_EQ(g_calls, 2);
}

int g_usr1 = 0;
UTL_SIGNAL_HANDLER HandlerOf(int sig) {
  struct sigaction now = {};
  sigaction(sig, nullptr, &now);
  return now.sa_handler;
}

TEST(Signals, BlockUnblockAndPersistentInstall) {
  EXPECT_EQ(UTL_SIGNAL_BLOCK(SIGUSR1), 1);
  EXPECT_EQ(HandlerOf(SIGUSR1), SIG_IGN);
  EXPECT_EQ(raise(SIGUSR1), 0);  // survives
  EXPECT_EQ(UTL_SIGNAL_UNBLOCK(SIGUSR1), 1);
  EXPECT_EQ(HandlerOf(SIGUSR1), SIG_DFL);
  EXPECT_EXIT(raise(SIGUSR1), testing::KilledBySignal(SIGUSR1), "");
  EXPECT_EQ(UTL_SIGNAL_BLOCK(-3) + UTL_SIGNAL_UNBLOCK(100000), 2);  // invalid: still 1 each
  const UTL_SIGNAL_HANDLER count = [](int) { ++g_usr1; };
  EXPECT_EQ(UTL_SIGNAL_SIGNAL(SIGUSR1, count), SIG_DFL);
  raise(SIGUSR1);
  raise(SIGUSR1);  // not reset to the default by the first delivery
  EXPECT_EQ(UTL_SIGNAL_SIGNAL(SIGUSR1, SIG_IGN), count);
  raise(SIGUSR1);
  EXPECT_EQ(g_usr1, 2);
  EXPECT_EQ(UTL_SIGNAL_SIGNAL(SIGUSR1, SIG_DFL), SIG_IGN);
  EXPECT_EQ(UTL_SIGNAL_SIGNAL(-1, count), SIG_ERR);
  EXPECT_EQ(UTL_SIGNAL_SIGNAL(SIGKILL, count), SIG_ERR);
}

}  // namespace
