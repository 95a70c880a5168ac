// The minimal terminal layer: line output to standard output, a flush, the
// control requests of the break handlers, and a stack of saved terminal modes
// of standard input.
//
// Output bypasses stdio (one write(2) per call), so PutText, Flush and
// Control are async-signal-safe and usable from signal handlers; text printed
// earlier through stdio may still sit in its buffer. Push, Restore and Pop
// save and restore the termios state of standard input when it is a terminal
// and only keep count otherwise.
#ifndef QXBASE_PROCESS_TERMINAL_H
#define QXBASE_PROCESS_TERMINAL_H

namespace qx::terminal {

// The control request the break handlers issue around their callback.
inline constexpr int kBreakControl = 27;

// Writes text exactly as given (the caller supplies the line end), retrying
// partial and interrupted writes.
void PutText(const char *text);
// Waits until output to standard output has been transmitted when it is a
// terminal; nothing is buffered in this layer itself.
void Flush();
// Terminal control: request 27 does nothing and answers 1; requests this
// layer does not know answer 0.
int Control(int request);

// Saves the current mode of standard input on a stack (8 levels). Returns false
// when the stack is full (nothing saved).
bool Push();
// Reapplies the mode saved by the innermost Push, keeping it saved.
void Restore();
// Reapplies the innermost saved mode and drops it.
void Pop();

}  // namespace qx::terminal

#endif  // QXBASE_PROCESS_TERMINAL_H
