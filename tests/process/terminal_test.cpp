// The terminal layer: unbuffered output, control requests and the saved-mode stack.
#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <tuple>

#include <gtest/gtest.h>

#include "process/terminal.h"
#include "qx_test.h"

using namespace qx::terminal;

TEST(Terminal, TextGoesOutAtOnceAndTheStackHoldsEightLevelsOfANonTerminal) {
  qxtest::CaptureStream out(stdout);
  std::fputs("buffered ", stdout);  // still in the stdio buffer
  PutText("** CANCEL **\a\n");
  Flush();
  EXPECT_EQ(out.Text(), "** CANCEL **\a\nbuffered ");
  for (int request : {0, 26, 27, 28, -27})
    EXPECT_EQ(Control(request), request == 27) << request;
  ASSERT_EQ(dup2(open("/dev/null", O_RDONLY), STDIN_FILENO), STDIN_FILENO);
  for (int level = 0; level <= 8; ++level)
    EXPECT_EQ(Push(), level < 8) << level;
}

// Sets echo on standard input when `set` is 0 or 1; answers whether it is on.
static bool Echo(int set = -1) {
  termios mode{};
  tcgetattr(STDIN_FILENO, &mode);
  if (set >= 0) mode.c_lflag = set ? (mode.c_lflag | ECHO) : (mode.c_lflag & ~tcflag_t{ECHO});
  return tcsetattr(STDIN_FILENO, TCSANOW, &mode) == 0 && (mode.c_lflag & ECHO);
}

TEST(Terminal, SavedModesAreReappliedOnATerminal) {
  // Push, Restore or Pop, with echo set before it and expected after it; the last pops nothing.
  static constexpr std::tuple<char, bool, bool> kSteps[] = {{'+', 1, 1}, {'+', 0, 0}, {'r', 1, 0},
                                                            {'-', 1, 0}, {'-', 0, 1}, {'-', 0, 0}};
  const int primary = posix_openpt(O_RDWR | O_NOCTTY);
  if (primary < 0 || grantpt(primary) || unlockpt(primary)) GTEST_SKIP() << "no pseudo-terminal";
  ASSERT_EQ(dup2(open(ptsname(primary), O_RDWR | O_NOCTTY), STDIN_FILENO), STDIN_FILENO);
  for (const auto &[op, echo_before, echo_after] : kSteps) {
    Echo(echo_before);
    op == '+' ? void(Push()) : op == 'r' ? Restore() : Pop();
    EXPECT_EQ(Echo(), echo_after) << op << echo_before;
  }
}
