// The minimal terminal layer (see terminal.h). Output goes straight to file
// descriptor 1 with write(2), which signal handlers may call; the mode stack
// records for each level whether standard input was a terminal when it was
// pushed, so that Pop stays balanced either way.
#include "process/terminal.h"

#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace qx::terminal {
namespace {

constexpr int kDepth = 8;

struct SavedMode {
  bool valid;
  termios mode;
};

SavedMode g_saved[kDepth];
int g_depth = 0;

}  // namespace

void PutText(const char *text) {
  std::size_t left = std::strlen(text);
  while (left > 0) {
    const ssize_t written = write(STDOUT_FILENO, text, left);
    if (written < 0) {
      if (errno == EINTR) continue;
      return;
    }
    text += written;
    left -= static_cast<std::size_t>(written);
  }
}

void Flush() {
  termios mode;
  if (tcgetattr(STDOUT_FILENO, &mode) == 0) tcdrain(STDOUT_FILENO);
}

int Control(int request) {
  return request == kBreakControl ? 1 : 0;
}

bool Push() {
  if (g_depth == kDepth) return false;
  SavedMode &saved = g_saved[g_depth++];
  saved.valid = tcgetattr(STDIN_FILENO, &saved.mode) == 0;
  return true;
}

void Restore() {
  if (g_depth == 0) return;
  const SavedMode &saved = g_saved[g_depth - 1];
  if (saved.valid) tcsetattr(STDIN_FILENO, TCSADRAIN, &saved.mode);
}

void Pop() {
  Restore();
  if (g_depth > 0) --g_depth;
}

}  // namespace qx::terminal
