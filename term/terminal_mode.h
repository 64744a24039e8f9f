#pragma once

#include <cstddef>
#include <memory>

/// The mode of the terminal on file descriptor 0 (termios(3)): raw while the line editor
/// uses it, so that keys arrive one by one and without echo; otherwise, and while another
/// program uses it, the original mode, in which it was found.
///
/// Only the interactive shell calls this; in batch mode the terminal is left alone. The
/// mode belongs to the terminal, so there is one per process, and any thread may change
/// it. If standard input is not a terminal, every change fails and has no effect.
///
/// In raw mode, signals with the default action are handled; an ignored signal stays
/// ignored. Every signal that terminates a process, real-time signals and those after
/// program errors included, restores the original mode and then terminates the process as
/// usual; nothing can be restored after SIGKILL. SIGTSTP, SIGTTIN and SIGTTOU restore it
/// and stop the process. When a stopped process is continued, it sets raw mode again and
/// requests a repaint of the line (`requestRepaint`). In the background the mode belongs to
/// the foreground job: a process that sets raw mode there is stopped by SIGTTOU, and raw
/// mode is set when it is continued in the foreground. The mode found at that time is then
/// the original mode.

namespace treescope {

/// With 1: saves the current mode as the original mode and sets raw mode. Raw mode clears
/// the input flags BRKINT, ISTRIP and IXON and the local flags ICANON, ECHO, ECHOE, ECHOK,
/// ECHONL and IEXTEN, and sets VMIN to 1 and VTIME to 0. Return is still read as a line
/// feed, and the interrupt key still raises its signal.
///
/// With any other value: restores the original mode, if raw mode was ever set. Changes
/// take effect immediately (TCSANOW).
///
/// Returns false if the mode could not be changed.
[[nodiscard]] bool setRawMode(int mode);

/// While this exists, the calling thread, in which it must be destroyed, restores the
/// original mode on a stack of its own when a signal ends the process: also when the
/// thread's stack has overflowed. No effect if there is no memory, or if the thread has
/// such a stack already.
class SignalStack {
 public:
  SignalStack();
  ~SignalStack();
  SignalStack(const SignalStack&) = delete;
  SignalStack& operator=(const SignalStack&) = delete;

 private:
  std::unique_ptr<std::byte[]> memory_;
};

/// Restores the original mode for a program that runs meanwhile: on while this exists,
/// then raw mode again. No effect if raw mode is off. The mode in which the program
/// leaves the terminal is ignored.
class OriginalMode {
 public:
  OriginalMode();
  ~OriginalMode();
  OriginalMode(const OriginalMode&) = delete;
  OriginalMode& operator=(const OriginalMode&) = delete;

 private:
  bool suspendedRaw_ = false;
};

}  // namespace treescope
