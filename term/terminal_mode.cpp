#include "term/terminal_mode.h"

#include <pthread.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "term/key_input.h"

namespace treescope {

namespace {

enum class Mode {
  original,  ///< raw mode was not taken, or is over
  raw,
  lent,  ///< original, until a program that was started has ended
};

/// The terminal as this process wants it. For whoever is in the `SignalSafeLock` alone.
struct Terminal {
  Mode wanted = Mode::original;
  /// Whether `original` and `raw` are known: they are when raw mode is first set,
  /// since the mode that is found in the background belongs to another job.
  bool found = false;
  termios original{};
  termios raw{};
  /// Threads that are stopping the process: the mode is original meanwhile.
  int stopping = 0;
};

Terminal terminal;

std::atomic_flag lockTaken;

void acquireLock() {
  while (lockTaken.test_and_set(std::memory_order_acquire)) {
  }
}

/// Lets one thread at a time at the terminal, its signal handlers included: with
/// the signals held back none of them can wait for the thread that it interrupts.
/// Held for a few system calls that do not block.
class SignalSafeLock {
 public:
  SignalSafeLock() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
    acquireLock();
  }
  ~SignalSafeLock() {
    lockTaken.clear(std::memory_order_release);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  SignalSafeLock(const SignalSafeLock&) = delete;
  SignalSafeLock& operator=(const SignalSafeLock&) = delete;

 private:
  sigset_t before_{};
};

bool inBackground() {
  const pid_t foreground = tcgetpgrp(STDIN_FILENO);
  return foreground != -1 && foreground != getpgrp();
}

termios rawOf(termios mode) {
  mode.c_iflag &= ~static_cast<tcflag_t>(BRKINT | ISTRIP | IXON);
  mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ECHOE | ECHOK | ECHONL | IEXTEN);
  mode.c_cc[VMIN] = 1;
  mode.c_cc[VTIME] = 0;
  return mode;
}

bool findMode() {
  if (!terminal.found && tcgetattr(STDIN_FILENO, &terminal.original) == 0) {
    terminal.found = true;
    terminal.raw = rawOf(terminal.original);
  }
  return terminal.found;
}

/// Has the process stop as soon as the signals are let through. False where it has
/// come to the foreground meanwhile and must not stop there; a stop that is asked
/// for before that is withdrawn by the SIGCONT that comes with the foreground.
bool stopInBackground() {
  raise(SIGTTOU);
  if (inBackground()) {
    return true;
  }
  struct sigaction ignored {};
  struct sigaction before {};
  ignored.sa_handler = SIG_IGN;
  if (sigaction(SIGTTOU, &ignored, &before) == 0) {
    static_cast<void>(sigaction(SIGTTOU, &before, nullptr));
  }
  return false;
}

// In the background the mode is another job's, until this one is continued in the
// foreground; to ask for raw mode there stops it, as it stops whoever sets modes.
bool applyWanted() {
  if (terminal.stopping > 0) {
    return false;
  }
  const bool raw = terminal.wanted == Mode::raw;
  if (inBackground() && (!raw || stopInBackground())) {
    return false;
  }
  if (raw ? !findMode() : !terminal.found) {
    return false;
  }
  return tcsetattr(STDIN_FILENO, TCSANOW, raw ? &terminal.raw : &terminal.original) == 0;
}

/// The original mode for as long as the process is stopped, or until it ends.
void stepAside() {
  if (terminal.wanted == Mode::raw && terminal.found && !inBackground()) {
    static_cast<void>(tcsetattr(STDIN_FILENO, TCSANOW, &terminal.original));
  }
}

void takeAgain() {
  if (terminal.wanted == Mode::raw && applyWanted()) {
    requestRepaint();
  }
}

bool setHandler(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigfillset(&action.sa_mask);
  return sigaction(signal, &action, nullptr) == 0;
}

void endBySignal(int signal) {
  // Never opened again: nobody takes raw mode between here and the end.
  acquireLock();
  stepAside();
  sigset_t own;
  sigemptyset(&own);
  sigaddset(&own, signal);
  if (setHandler(signal, SIG_DFL) && raise(signal) == 0) {
    // Ends here, not when the handler returns: a handler that is called in between,
    // as a checked build does, would wait for the lock.
    pthread_sigmask(SIG_UNBLOCK, &own, nullptr);
  }
  _exit(EXIT_FAILURE);
}

void stopBySignal(int signal) {
  const int before = errno;
  {
    const SignalSafeLock lock;
    stepAside();
    ++terminal.stopping;
  }
  sigset_t own;
  sigemptyset(&own);
  sigaddset(&own, signal);
  if (setHandler(signal, SIG_DFL) && raise(signal) == 0) {
    // The process stops within the first of these, or does not stop at all where
    // nobody could continue it.
    pthread_sigmask(SIG_UNBLOCK, &own, nullptr);
    pthread_sigmask(SIG_BLOCK, &own, nullptr);
  }
  {
    const SignalSafeLock lock;
    --terminal.stopping;
    if (terminal.wanted != Mode::original) {
      static_cast<void>(setHandler(signal, stopBySignal));
    }
    takeAgain();
  }
  errno = before;
}

void goOn(int /*signal*/) {
  const int before = errno;
  {
    const SignalSafeLock lock;
    takeAgain();
  }
  errno = before;
}

struct HandledSignal {
  int signal;
  void (*handler)(int) = endBySignal;
  bool taken = false;
};

std::array handledSignals = {HandledSignal{SIGINT},
                             HandledSignal{SIGTERM},
                             HandledSignal{SIGHUP},
                             HandledSignal{SIGQUIT},
                             HandledSignal{SIGABRT},
                             HandledSignal{SIGSEGV},
                             HandledSignal{SIGBUS},
                             HandledSignal{SIGFPE},
                             HandledSignal{SIGILL},
                             HandledSignal{SIGPIPE},
                             HandledSignal{SIGALRM},
                             HandledSignal{SIGUSR1},
                             HandledSignal{SIGUSR2},
                             HandledSignal{SIGXCPU},
                             HandledSignal{SIGXFSZ},
                             HandledSignal{SIGSYS},
                             HandledSignal{SIGTSTP, stopBySignal},
                             HandledSignal{SIGCONT, goOn}};

bool atDefault(int signal) {
  struct sigaction present {};
  return sigaction(signal, nullptr, &present) == 0 && (present.sa_flags & SA_SIGINFO) == 0 &&
         present.sa_handler == SIG_DFL;
}

void takeSignals() {
  for (HandledSignal& handled : handledSignals) {
    handled.taken = atDefault(handled.signal) && setHandler(handled.signal, handled.handler);
  }
}

void giveSignalsBack() {
  for (HandledSignal& handled : handledSignals) {
    handled.taken = handled.taken && !setHandler(handled.signal, SIG_DFL);
  }
}

bool takeRawMode() {
  const SignalSafeLock lock;
  if (terminal.wanted == Mode::original) {
    if (isatty(STDIN_FILENO) == 0) {
      return false;
    }
    terminal.found = false;
    takeSignals();
  }
  terminal.wanted = Mode::raw;
  return applyWanted();
}

bool putOriginalModeBack() {
  const SignalSafeLock lock;
  terminal.wanted = Mode::original;
  const bool applied = applyWanted();
  giveSignalsBack();
  return applied;
}

}  // namespace

bool setRawMode(int mode) {
  return mode == 1 ? takeRawMode() : putOriginalModeBack();
}

OriginalMode::OriginalMode() {
  const SignalSafeLock lock;
  if (terminal.wanted == Mode::raw) {
    lent_ = true;
    terminal.wanted = Mode::lent;
    static_cast<void>(applyWanted());
  }
}

OriginalMode::~OriginalMode() {
  if (!lent_) {
    return;
  }
  const SignalSafeLock lock;
  if (terminal.wanted == Mode::lent) {
    terminal.wanted = Mode::raw;
    static_cast<void>(applyWanted());
  }
}

}  // namespace treescope
