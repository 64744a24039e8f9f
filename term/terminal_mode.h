#pragma once

/// The mode of the terminal on file descriptor 0 (termios(3)): raw while the line
/// editor has it, so that keys come one by one and without echo; as it was found
/// before, after, and while another program has it.
///
/// The interactive shell alone calls this; in batch mode nobody does. The mode
/// belongs to the terminal, so there is one for the whole process, and any thread
/// may change it. Where standard input is no terminal every change is refused and
/// has no effect.
///
/// While raw mode is on, signals that are at their default are handled; one that
/// was ignored stays ignored. Those that end a process (SIGINT, SIGTERM, SIGHUP,
/// SIGQUIT, SIGPIPE, SIGALRM, SIGUSR1, SIGUSR2, and of those that mean a fault
/// SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGSYS, SIGXCPU and SIGXFSZ) put the
/// original mode back and then end it as they would have. SIGTSTP puts it back and
/// stops the process; whenever a stopped process is continued, it takes raw mode
/// again and has the line repainted (`requestRepaint`). In the background the mode
/// is left to the job that has the terminal: whoever takes raw mode there is
/// stopped by SIGTTOU, and takes it when continued in the foreground. The mode found
/// there is then the original one.

namespace treescope {

/// With 1: keeps the present mode as the original one, and takes raw mode. Raw
/// differs by the input flags BRKINT, ISTRIP and IXON and the local flags ICANON,
/// ECHO, ECHOE, ECHOK, ECHONL and IEXTEN, which are off, and by VMIN 1 and VTIME
/// 0; Return is still read as a line feed, and the interrupt key still raises its
/// signal. With anything else: puts the original mode back; there is nothing to
/// put back where raw mode was never taken. Takes effect at once (TCSANOW).
///
/// False where the mode could not be changed.
[[nodiscard]] bool setRawMode(int mode);

/// The terminal as it was found, for a program that is run meanwhile: while this
/// lives the original mode is on, then raw mode again. Has no effect where raw
/// mode is off. The mode that the program leaves is not looked at.
class OriginalMode {
 public:
  OriginalMode();
  ~OriginalMode();
  OriginalMode(const OriginalMode&) = delete;
  OriginalMode& operator=(const OriginalMode&) = delete;

 private:
  bool lent_ = false;
};

}  // namespace treescope
