// Tests of the minimal terminal layer: unbuffered text output, control
// requests, and the saved-mode stack on a pseudo-terminal and on a non-terminal.
#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "process/terminal.h"
#include "qx_test.h"

namespace {

TEST(Terminal, TextGoesOutAsGivenAndBeforeBufferedStdio) {
  qxtest::CaptureStream out(stdout);
  std::fputs("buffered ", stdout);  // still in the stdio buffer
  qx::terminal::PutText("** CANCEL **\a\n");
  qx::terminal::PutText("");
  qx::terminal::Flush();
  EXPECT_EQ(out.Text(), "** CANCEL **\a\nbuffered ");
}

TEST(Terminal, OnlyRequest27IsKnown) {
  struct Case {
    int request, answer;
  };
  static constexpr Case kCases[] = {{27, 1}, {0, 0}, {26, 0}, {28, 0}, {-27, 0}};
  for (const Case &c : kCases)
    EXPECT_EQ(qx::terminal::Control(c.request), c.answer) << c.request;
}

// Makes standard input the secondary side of a fresh pseudo-terminal.
class PseudoTerminalInput : public testing::Test {
 protected:
  void SetUp() override {
    primary_ = posix_openpt(O_RDWR | O_NOCTTY);
    if (primary_ < 0 || grantpt(primary_) != 0 || unlockpt(primary_) != 0)
      GTEST_SKIP() << "no pseudo-terminal available";
    const int secondary = open(ptsname(primary_), O_RDWR | O_NOCTTY);
    ASSERT_GE(secondary, 0);
    ASSERT_EQ(dup2(secondary, STDIN_FILENO), STDIN_FILENO);
    close(secondary);
  }
  void TearDown() override {
    if (primary_ >= 0) close(primary_);
  }
  static tcflag_t Echo() {
    termios mode;
    EXPECT_EQ(tcgetattr(STDIN_FILENO, &mode), 0);
    return mode.c_lflag & ECHO;
  }
  static void SetEcho(bool on) {
    termios mode;
    ASSERT_EQ(tcgetattr(STDIN_FILENO, &mode), 0);
    mode.c_lflag = on ? (mode.c_lflag | ECHO) : (mode.c_lflag & ~static_cast<tcflag_t>(ECHO));
    ASSERT_EQ(tcsetattr(STDIN_FILENO, TCSANOW, &mode), 0);
  }
  int primary_ = -1;
};

TEST_F(PseudoTerminalInput, PushRestorePopReapplyTheSavedModes) {
  SetEcho(true);
  ASSERT_TRUE(qx::terminal::Push());  // level 1: echo on
  SetEcho(false);
  ASSERT_TRUE(qx::terminal::Push());  // level 2: echo off
  SetEcho(true);
  qx::terminal::Restore();
  EXPECT_EQ(Echo(), 0u);
  SetEcho(true);
  qx::terminal::Pop();  // back to level 2's mode, then drops it
  EXPECT_EQ(Echo(), 0u);
  qx::terminal::Restore();  // now level 1
  EXPECT_NE(Echo(), 0u);
  SetEcho(false);
  qx::terminal::Pop();
  EXPECT_NE(Echo(), 0u);
  SetEcho(false);
  qx::terminal::Pop();  // nothing saved: nothing changes
  EXPECT_EQ(Echo(), 0u);
}

TEST(Terminal, StackHoldsEightLevelsAndIgnoresANonTerminal) {
  const int null_input = open("/dev/null", O_RDONLY);
  ASSERT_GE(null_input, 0);
  ASSERT_EQ(dup2(null_input, STDIN_FILENO), STDIN_FILENO);
  close(null_input);
  for (int level = 0; level < 8; ++level)
    EXPECT_TRUE(qx::terminal::Push()) << level;
  EXPECT_FALSE(qx::terminal::Push());
  for (int level = 0; level < 8; ++level)
    qx::terminal::Pop();
  EXPECT_TRUE(qx::terminal::Push());
  qx::terminal::Restore();
}

}  // namespace
