// The break flag, its handlers (also under a real SIGINT) and the signal functions.
#include <signal.h>

#include <cerrno>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "qx_test.h"
#include "utl_error.h"
#include "utl_intr.h"

namespace {

std::string g_log;  // one entry per callback: the flag as it saw it
void Callback() {
  g_log += UTL_INTR_PENDING() ? "raised " : "clear ";
}

TEST(Intr, FlagErrorAndEachHandlerEvent) {
  enum { kSimulate = -2, kSigint = -1 };  // other events go to UTL_INTR_CATCH_NT
  // Event, callback installed; then: prints, raises the flag, what the callback saw.
  static constexpr std::tuple<int, UTL_INTR_CALLBACK_FUNC, bool, bool, const char *> kCases[] = {
      {kSimulate, Callback, false, true, ""}, {kSigint, Callback, true, true, "raised "},
      {0, nullptr, true, true, ""},           {0, Callback, true, true, "raised "},
      {1, nullptr, false, false, ""},         {6, Callback, false, false, "clear "}};
  EXPECT_EQ(UTL_INTR_PENDING(), 0);
  UTL_INTR_SIMULATE();
  EXPECT_EQ(UTL_INTR_PENDING() + UTL_INTR_PENDING(), 2);  // reading clears nothing
  EXPECT_EQ(UTL_INTR_SET_ERROR("loop"), 1);               // the pool index of the appended line
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/INTR/WARNING/UIMS_USER_CANCEL");
  EXPECT_EQ(qxtest::TopError().traces, (std::vector<std::string>{"UTL_INTR_SET_ERROR", "loop"}));
  EXPECT_EQ(std::pair(UTL_ERROR_IS_ABORT(), UTL_INTR_PENDING()), std::pair(1, 1));
  ASSERT_NE(signal(SIGINT, UTL_INTR_CATCH), SIG_ERR);  // installable without a cast
  UTL_INTR_CALLBACK_FUNC previous = nullptr;
  for (const auto &[event, callback, prints, raises, seen] : kCases) {
    UTL_INTR_CLEAR();
    EXPECT_EQ(UTL_INTR_CALLBACK(callback), std::exchange(previous, callback));
    g_log.clear();
    errno = ERANGE;  // kept across the handlers
    const auto observed = [event = event] {
      qxtest::CaptureStream out(stdout);
      if (event == kSimulate) UTL_INTR_SIMULATE();
      if (event == kSigint) raise(SIGINT);
      const int handled = event >= 0 ? UTL_INTR_CATCH_NT(event) : 1, kept_errno = errno;
      return std::tuple(out.Text(), handled, kept_errno, UTL_INTR_PENDING(), g_log);
    }();
    EXPECT_EQ(observed, std::tuple(prints ? "** CANCEL **\a\n" : "", 1, ERANGE, int{raises}, seen))
        << event;
  }
}

TEST(Signals, BlockUnblockAndPersistentInstall) {
  static int usr1 = 0;
  const UTL_SIGNAL_HANDLER count = [](int) { ++usr1; };
  EXPECT_EQ(UTL_SIGNAL_BLOCK(SIGUSR1), 1);
  EXPECT_EQ(UTL_SIGNAL_SIGNAL(SIGUSR1, count), SIG_IGN);
  raise(SIGUSR1);
  raise(SIGUSR1);  // not reset to the default by the first delivery
  EXPECT_EQ(usr1, 2);
  EXPECT_EQ(UTL_SIGNAL_UNBLOCK(SIGUSR1), 1);
  EXPECT_EXIT(raise(SIGUSR1), testing::KilledBySignal(SIGUSR1), "");
  EXPECT_EQ(UTL_SIGNAL_BLOCK(-3) + UTL_SIGNAL_UNBLOCK(100000), 2);  // invalid: still 1 each
  EXPECT_EQ(UTL_SIGNAL_SIGNAL(SIGKILL, count), SIG_ERR);
}

}  // namespace
