// Tests of the break flag, its handlers (called directly and delivered as real
// signals) and the three signal-disposition functions.
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "qx_test.h"
#include "utl_error.h"
#include "utl_intr.h"

namespace {

const std::string kCancelLine = "** CANCEL **\a\n";

int g_callbacks = 0;
int g_pending_seen_by_callback = -1;
void CountingCallback() {
  ++g_callbacks;
  g_pending_seen_by_callback = UTL_INTR_PENDING();
}
void OtherCallback() {}

TEST(IntrFlag, RaisedBySimulateUntilCleared) {
  EXPECT_EQ(UTL_INTR_PENDING(), 0);
  UTL_INTR_SIMULATE();
  EXPECT_EQ(UTL_INTR_PENDING(), 1);
  EXPECT_EQ(UTL_INTR_PENDING(), 1);  // reading clears nothing
  UTL_INTR_SIMULATE();
  EXPECT_EQ(UTL_INTR_PENDING(), 1);
  UTL_INTR_CLEAR();
  EXPECT_EQ(UTL_INTR_PENDING(), 0);
  UTL_INTR_CLEAR();
  EXPECT_EQ(UTL_INTR_PENDING(), 0);
}

TEST(IntrFlag, CallbackReturnsThePreviousOneAndTimeoutEchoes) {
  EXPECT_EQ(UTL_INTR_CALLBACK(CountingCallback), nullptr);
  EXPECT_EQ(UTL_INTR_CALLBACK(OtherCallback), CountingCallback);
  EXPECT_EQ(UTL_INTR_CALLBACK(nullptr), OtherCallback);
  EXPECT_EQ(UTL_INTR_CALLBACK(nullptr), nullptr);
  for (int timeout : {0, 30, -1, 2147483647})
    EXPECT_EQ(UTL_INTR_SET_TIMEOUT(timeout), timeout);
}

TEST(IntrFlag, SetErrorRecordsAUserCancel) {
  const int index = UTL_INTR_SET_ERROR("main_loop (2)");
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/INTR/WARNING/UIMS_USER_CANCEL");
  EXPECT_EQ(qxtest::TopError().traces,
            (std::vector<std::string>{"UTL_INTR_SET_ERROR", "main_loop (2)"}));
  EXPECT_EQ(index, 1);  // the pool index of the appended line
  EXPECT_EQ(UTL_ERROR_IS_ABORT(), 1);
  EXPECT_EQ(UTL_ERROR_IS_WARNING(), 1);
  EXPECT_EQ(UTL_INTR_PENDING(), 0);  // recording the error leaves the flag alone
}

// Each row: what a handler call prints and does.
struct HandlerCase {
  const char *name;
  int event;  // -1: UTL_INTR_CATCH, -2: UTL_INTR_SIMULATE, else UTL_INTR_CATCH_NT(event)
  bool with_callback;
  bool raises_flag;
  bool prints;
};

constexpr HandlerCase kHandlerCases[] = {
    {"simulate", -2, true, true, false},
    {"catch", -1, false, true, true},
    {"catch with callback", -1, true, true, true},
    {"console ctrl-c", 0, false, true, true},
    {"console ctrl-c with callback", 0, true, true, true},
    {"console ctrl-break", 1, false, false, false},
    {"console ctrl-break with callback", 1, true, false, false},
    {"console close with callback", 2, true, false, false},
    {"console shut-down", 6, false, false, false},
};

TEST(IntrHandlers, DirectCallsFollowTheirEvent) {
  for (const HandlerCase &c : kHandlerCases) {
    SCOPED_TRACE(c.name);
    UTL_INTR_CLEAR();
    g_callbacks = 0;
    g_pending_seen_by_callback = -1;
    UTL_INTR_CALLBACK(c.with_callback ? CountingCallback : nullptr);
    qxtest::CaptureStream out(stdout);
    if (c.event == -2)
      UTL_INTR_SIMULATE();
    else if (c.event == -1)
      UTL_INTR_CATCH(SIGINT);
    else
      EXPECT_EQ(UTL_INTR_CATCH_NT(c.event), 1);
    EXPECT_EQ(out.Text(), c.prints ? kCancelLine : "");
    EXPECT_EQ(UTL_INTR_PENDING(), c.raises_flag ? 1 : 0);
    const bool calls_back = c.with_callback && c.event != -2;
    EXPECT_EQ(g_callbacks, calls_back ? 1 : 0);
    // The callback runs after the flag is raised.
    if (calls_back) {
      EXPECT_EQ(g_pending_seen_by_callback, c.raises_flag ? 1 : 0);
    }
  }
}

TEST(IntrHandlers, InstalledForSigintWithoutACast) {
  UTL_INTR_CALLBACK(CountingCallback);
  ASSERT_NE(signal(SIGINT, UTL_INTR_CATCH), SIG_ERR);
  qxtest::CaptureStream out(stdout);
  ASSERT_EQ(raise(SIGINT), 0);
  EXPECT_EQ(out.Text(), kCancelLine);
  EXPECT_EQ(UTL_INTR_PENDING(), 1);
  EXPECT_EQ(g_callbacks, 1);
  // Through sigaction as well, and the handler keeps errno.
  struct sigaction action = {};
  action.sa_handler = UTL_INTR_CATCH;
  sigemptyset(&action.sa_mask);
  ASSERT_EQ(sigaction(SIGINT, &action, nullptr), 0);
  errno = ERANGE;
  ASSERT_EQ(raise(SIGINT), 0);
  EXPECT_EQ(errno, ERANGE);
  EXPECT_EQ(out.Text(), kCancelLine + kCancelLine);
  EXPECT_EQ(g_callbacks, 2);
}

// ---- Signal dispositions ----------------------------------------------------

int g_usr1 = 0;
void CountUsr1(int) {
  ++g_usr1;
}

UTL_SIGNAL_HANDLER CurrentHandler(int sig) {
  struct sigaction now = {};
  sigaction(sig, nullptr, &now);
  return now.sa_handler;
}

TEST(Signals, BlockIgnoresAndUnblockRestoresTheDefault) {
  EXPECT_EQ(UTL_SIGNAL_BLOCK(SIGUSR1), 1);
  EXPECT_EQ(CurrentHandler(SIGUSR1), SIG_IGN);
  EXPECT_EQ(raise(SIGUSR1), 0);  // survives
  EXPECT_EQ(UTL_SIGNAL_UNBLOCK(SIGUSR1), 1);
  EXPECT_EQ(CurrentHandler(SIGUSR1), SIG_DFL);
  EXPECT_EXIT(raise(SIGUSR1), testing::KilledBySignal(SIGUSR1), "");
  // An invalid signal changes nothing and still answers 1.
  EXPECT_EQ(UTL_SIGNAL_BLOCK(-3), 1);
  EXPECT_EQ(UTL_SIGNAL_UNBLOCK(100000), 1);
}

TEST(Signals, SignalInstallsPersistentlyAndReturnsThePrevious) {
  EXPECT_EQ(UTL_SIGNAL_SIGNAL(SIGUSR1, CountUsr1), SIG_DFL);
  raise(SIGUSR1);
  raise(SIGUSR1);  // not reset to the default by the first delivery
  EXPECT_EQ(g_usr1, 2);
  EXPECT_EQ(UTL_SIGNAL_SIGNAL(SIGUSR1, SIG_IGN), CountUsr1);
  raise(SIGUSR1);
  EXPECT_EQ(g_usr1, 2);
  EXPECT_EQ(UTL_SIGNAL_SIGNAL(SIGUSR1, SIG_DFL), SIG_IGN);
  EXPECT_EQ(UTL_SIGNAL_SIGNAL(-1, CountUsr1), SIG_ERR);
  EXPECT_EQ(UTL_SIGNAL_SIGNAL(SIGKILL, CountUsr1), SIG_ERR);
}

}  // namespace
