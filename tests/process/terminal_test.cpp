// Tests of the minimal terminal layer: unbuffered text output, control
// requests, and the saved-mode stack on a pseudo-terminal and on a non-terminal.
#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <tuple>

#include <gtest/gtest.h>

#include "process/terminal.h"
#include "qx_test.h"

namespace {

TEST(Terminal, TextGoesOutAtOnceAndOnlyRequest27IsKnown) {
  qxtest::CaptureStream out(stdout);
  std::fputs("buffered ", stdout);  // still in the stdio buffer
  qx::terminal::PutText("** CANCEL **\a\n");
  qx::terminal::PutText("");
  qx::terminal::Flush();
  EXPECT_EQ(out.Text(), "** CANCEL **\a\nbuffered ");
  EXPECT_EQ(qx::terminal::Control(27), 1);
  for (int request : {0, 26, 28, -27})
    EXPECT_EQ(qx::terminal::Control(request), 0) << request;
}

// Whether standard input echoes, after setting it when `on` is 0 or 1.
bool Echo(int on = -1) {
  termios mode{};
  EXPECT_EQ(tcgetattr(STDIN_FILENO, &mode), 0);
  if (on >= 0) mode.c_lflag = on ? (mode.c_lflag | ECHO) : (mode.c_lflag & ~tcflag_t{ECHO});
  EXPECT_EQ(tcsetattr(STDIN_FILENO, TCSANOW, &mode), 0);
  return mode.c_lflag & ECHO;
}
// Makes `fd` standard input.
void UseAsInput(int fd) {
  ASSERT_GE(fd, 0);
  ASSERT_EQ(dup2(fd, STDIN_FILENO), STDIN_FILENO);
  close(fd);
}

TEST(Terminal, PushRestorePopReapplyTheSavedModes) {
  enum Op { kPush, kRestore, kPop };
  // The operation, with echo set before it and expected after it.
  static constexpr std::tuple<Op, bool, bool> kSteps[] = {
      {kPush, true, true},      // level 1: echo on
      {kPush, false, false},    // level 2: echo off
      {kRestore, true, false},  // back to level 2's mode
      {kPop, true, false},      // again, then level 2 is dropped
      {kRestore, false, true},  // level 1
      {kPop, false, true},      // level 1, dropped
      {kPop, false, false}};    // nothing saved: nothing changes
  const int primary = posix_openpt(O_RDWR | O_NOCTTY);
  if (primary < 0 || grantpt(primary) != 0 || unlockpt(primary) != 0)
    GTEST_SKIP() << "no pseudo-terminal available";
  UseAsInput(open(ptsname(primary), O_RDWR | O_NOCTTY));
  for (const auto &[op, echo_before, echo_after] : kSteps) {
    Echo(echo_before);
    if (op == kPush)
      ASSERT_TRUE(qx::terminal::Push());
    else if (op == kRestore)
      qx::terminal::Restore();
    else
      qx::terminal::Pop();
    EXPECT_EQ(Echo(), echo_after) << op << echo_before;
  }
  close(primary);
}

TEST(Terminal, StackHoldsEightLevelsAndIgnoresANonTerminal) {
  UseAsInput(open("/dev/null", O_RDONLY));
  for (int level = 0; level < 8; ++level)
    EXPECT_TRUE(qx::terminal::Push()) << level;
  EXPECT_FALSE(qx::terminal::Push());
  for (int level = 0; level < 8; ++level)
    qx::terminal::Pop();
  EXPECT_TRUE(qx::terminal::Push());
  qx::terminal::Restore();
}

}  // namespace
