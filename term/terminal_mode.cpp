#include "term/terminal_mode.h"

#include <pthread.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <new>

#include "term/key_input.h"

namespace treescope {

namespace {

enum class Mode {
  original,  ///< raw mode has not been set, or has ended
  raw,
  suspended,  ///< original until a program that was started has ended, then raw
};

/// The state of the terminal mode. Protected by `SignalSafeLock`.
struct Terminal {
  Mode requested = Mode::original;
  /// Whether `original` and `raw` are valid. They are read when raw mode is first applied
  /// in the foreground: the mode in the background belongs to another job.
  bool saved = false;
  termios original{};
  termios raw{};
  /// The number of threads that are stopping the process. Raw mode is not applied
  /// meanwhile.
  int stopping = 0;
  /// By number, whether a signal is handled while raw mode is requested.
  std::array<bool, NSIG> handled{};
};

Terminal terminal;

std::atomic_flag lockTaken;

void acquireLock() {
  while (lockTaken.test_and_set(std::memory_order_acquire)) {
  }
}

/// A spin lock that signal handlers may take too. All signals are blocked while a thread
/// holds it, so a handler never waits for the thread that it interrupts. Held for a few
/// system calls that do not block.
class SignalSafeLock {
 public:
  SignalSafeLock() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &savedMask_);
    acquireLock();
  }
  ~SignalSafeLock() {
    lockTaken.clear(std::memory_order_release);
    pthread_sigmask(SIG_SETMASK, &savedMask_, nullptr);
  }
  SignalSafeLock(const SignalSafeLock&) = delete;
  SignalSafeLock& operator=(const SignalSafeLock&) = delete;

 private:
  sigset_t savedMask_{};
};

bool inBackground() {
  const pid_t foreground = tcgetpgrp(STDIN_FILENO);
  return foreground != -1 && foreground != getpgrp();
}

termios rawFrom(termios mode) {
  mode.c_iflag &= ~static_cast<tcflag_t>(BRKINT | ISTRIP | IXON);
  mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ECHOE | ECHOK | ECHONL | IEXTEN);
  mode.c_cc[VMIN] = 1;
  mode.c_cc[VTIME] = 0;
  return mode;
}

bool saveMode() {
  if (!terminal.saved && tcgetattr(STDIN_FILENO, &terminal.original) == 0) {
    terminal.saved = true;
    terminal.raw = rawFrom(terminal.original);
  }
  return terminal.saved;
}

bool setHandler(int signal, void (*handler)(int), int flags = SA_RESTART) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigfillset(&action.sa_mask);
  return sigaction(signal, &action, nullptr) == 0;
}

void stopBySignal(int signal);

/// Stops the process as soon as its signals are unblocked, and returns true. Returns
/// false if the process has come to the foreground meanwhile, where it must not stop: the
/// SIGCONT that moved it there has discarded a stop raised before it, and a stop raised
/// after it is discarded here.
///
/// The action is the default one, until raw mode is applied: there is no mode to restore,
/// and a process group that is orphaned does not stop, but would be signalled without end.
bool stopInBackground() {
  if (terminal.handled[SIGTTOU]) {
    static_cast<void>(setHandler(SIGTTOU, SIG_DFL));
  }
  raise(SIGTTOU);
  if (inBackground()) {
    return true;
  }
  // Ignoring a pending signal discards it.
  struct sigaction ignored {};
  struct sigaction saved {};
  ignored.sa_handler = SIG_IGN;
  if (sigaction(SIGTTOU, &ignored, &saved) == 0) {
    static_cast<void>(sigaction(SIGTTOU, &saved, nullptr));
  }
  return false;
}

bool setMode(const termios& mode) {
  int result = tcsetattr(STDIN_FILENO, TCSANOW, &mode);
  while (result == -1 && errno == EINTR) {
    result = tcsetattr(STDIN_FILENO, TCSANOW, &mode);
  }
  return result == 0;
}

// In the background the mode belongs to another job until this one is continued in the
// foreground. A request for raw mode stops the process there, as tcsetattr(3) would.
bool applyRequested() {
  if (terminal.stopping > 0) {
    return false;
  }
  const bool raw = terminal.requested == Mode::raw;
  if (inBackground() && (!raw || stopInBackground())) {
    return false;
  }
  if (raw ? !saveMode() : !terminal.saved) {
    return false;
  }
  if (raw && terminal.handled[SIGTTOU]) {
    static_cast<void>(setHandler(SIGTTOU, stopBySignal));
  }
  return setMode(raw ? terminal.raw : terminal.original);
}

/// Restores the original mode before the process stops or terminates; the requested mode
/// is unchanged.
void restoreOriginalMode() {
  if (terminal.requested == Mode::raw && terminal.saved && !inBackground()) {
    static_cast<void>(setMode(terminal.original));
  }
}

void resumeRawMode() {
  if (terminal.requested == Mode::raw && applyRequested()) {
    requestRepaint();
  }
}

void terminateBySignal(int signal) {
  // Never released: no thread can set raw mode before the process ends.
  acquireLock();
  restoreOriginalMode();
  sigset_t own;
  sigemptyset(&own);
  sigaddset(&own, signal);
  if (setHandler(signal, SIG_DFL) && raise(signal) == 0) {
    // The process ends here rather than when the handler returns: a handler that runs in
    // between, which sanitizers can cause, would wait for the lock forever.
    pthread_sigmask(SIG_UNBLOCK, &own, nullptr);
  }
  _exit(EXIT_FAILURE);
}

void stopBySignal(int signal) {
  const int savedErrno = errno;
  {
    const SignalSafeLock lock;
    restoreOriginalMode();
    ++terminal.stopping;
  }
  sigset_t own;
  sigemptyset(&own);
  sigaddset(&own, signal);
  if (setHandler(signal, SIG_DFL) && raise(signal) == 0) {
    // The process stops in the first call. It does not stop at all if its process group
    // is orphaned, since no shell could continue it.
    pthread_sigmask(SIG_UNBLOCK, &own, nullptr);
    pthread_sigmask(SIG_BLOCK, &own, nullptr);
  }
  {
    const SignalSafeLock lock;
    --terminal.stopping;
    if (terminal.requested != Mode::original) {
      static_cast<void>(setHandler(signal, stopBySignal));
    }
    resumeRawMode();
  }
  errno = savedErrno;
}

void continueBySignal(int /*signal*/) {
  const int savedErrno = errno;
  {
    const SignalSafeLock lock;
    resumeRawMode();
  }
  errno = savedErrno;
}

using SignalHandler = void (*)(int);

/// Null for the signals that neither end nor stop a process, and for those that cannot
/// be handled. The default action of every other signal, real-time signals included, is
/// to terminate the process.
SignalHandler handlerFor(int signal) {
  switch (signal) {
    case SIGKILL:
    case SIGSTOP:
    case SIGCHLD:
    case SIGURG:
    case SIGWINCH:
      return nullptr;
    case SIGTSTP:
    case SIGTTIN:
    case SIGTTOU:
      return stopBySignal;
    case SIGCONT:
      return continueBySignal;
    default:
      return terminateBySignal;
  }
}

bool hasDefaultAction(int signal) {
  struct sigaction current {};
  return sigaction(signal, nullptr, &current) == 0 && (current.sa_flags & SA_SIGINFO) == 0 &&
         current.sa_handler == SIG_DFL;
}

// The C library refuses the numbers of the signals that it uses itself.
void installHandlers() {
  for (int signal = 1; signal < NSIG; ++signal) {
    const SignalHandler handler = handlerFor(signal);
    terminal.handled[static_cast<std::size_t>(signal)] =
        handler != nullptr && hasDefaultAction(signal) &&
        setHandler(signal, handler, SA_RESTART | (handler == terminateBySignal ? SA_ONSTACK : 0));
  }
}

void restoreDefaultActions() {
  for (int signal = 1; signal < NSIG; ++signal) {
    bool& handled = terminal.handled[static_cast<std::size_t>(signal)];
    handled = handled && !setHandler(signal, SIG_DFL);
  }
}

bool enterRawMode() {
  const SignalSafeLock lock;
  if (terminal.requested == Mode::original) {
    if (isatty(STDIN_FILENO) == 0) {
      return false;
    }
    terminal.saved = false;
    installHandlers();
  }
  terminal.requested = Mode::raw;
  return applyRequested();
}

bool leaveRawMode() {
  const SignalSafeLock lock;
  terminal.requested = Mode::original;
  const bool applied = applyRequested();
  restoreDefaultActions();
  return applied;
}

}  // namespace

SignalStack::SignalStack() {
  stack_t stack{};
  if (sigaltstack(nullptr, &stack) != 0 || (stack.ss_flags & SS_DISABLE) == 0) {
    return;
  }
  // The kernel saves the processor's state there, whose size depends on the processor.
  constexpr long handlerSize = 8192;
  const auto size = static_cast<std::size_t>(std::max(sysconf(_SC_MINSIGSTKSZ), 0L) + handlerSize);
  memory_.reset(new (std::nothrow) std::byte[size]);
  stack = {.ss_sp = memory_.get(), .ss_flags = 0, .ss_size = size};
  if (memory_ != nullptr && sigaltstack(&stack, nullptr) != 0) {
    memory_.reset();
  }
}

SignalStack::~SignalStack() {
  if (memory_ != nullptr) {
    const stack_t none{.ss_sp = nullptr, .ss_flags = SS_DISABLE, .ss_size = 0};
    if (sigaltstack(&none, nullptr) != 0) {
      // The thread would use the memory later: it is not freed.
      static_cast<void>(memory_.release());
    }
  }
}

bool setRawMode(int mode) {
  return mode == 1 ? enterRawMode() : leaveRawMode();
}

OriginalMode::OriginalMode() {
  const SignalSafeLock lock;
  if (terminal.requested == Mode::raw) {
    suspendedRaw_ = true;
    terminal.requested = Mode::suspended;
    static_cast<void>(applyRequested());
  }
}

OriginalMode::~OriginalMode() {
  if (!suspendedRaw_) {
    return;
  }
  const SignalSafeLock lock;
  if (terminal.requested == Mode::suspended) {
    terminal.requested = Mode::raw;
    static_cast<void>(applyRequested());
  }
}

}  // namespace treescope
