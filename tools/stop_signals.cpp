#include "tools/stop_signals.h"

#include <signal.h>
#include <unistd.h>

#include <utility>

namespace treectl {

namespace {

volatile sig_atomic_t lastSignal = 0;
volatile sig_atomic_t isResized = 0;
volatile sig_atomic_t isSuspended = 0;
volatile sig_atomic_t isContinued = 0;

constexpr int plainSignals[] = {SIGINT, SIGTERM};
constexpr int terminalSignals[] = {SIGHUP, SIGQUIT};
constexpr int jobSignals[] = {SIGWINCH, SIGTSTP, SIGCONT};

void noteSignal(int number) {
  lastSignal = number;
  // The signal may come just before a write that waits for a reader.
  ::alarm(1);
}

void noteAlarm(int /*number*/) {
  ::alarm(1);
}

void noteJob(int number) {
  if (number == SIGWINCH) {
    isResized = 1;
  } else if (number == SIGTSTP) {
    isSuspended = 1;
  } else {
    isContinued = 1;
  }
}

void setHandler(int number, void (*handler)(int)) {
  struct sigaction action {};
  if (::sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
    // Without SA_RESTART, so that a wait ends.
    action = {};
    action.sa_handler = handler;
    ::sigaction(number, &action, nullptr);
  }
}

template <std::size_t count>
void setHandlers(const int (&numbers)[count], void (*handler)(int)) {
  for (const int number : numbers) {
    setHandler(number, handler);
  }
}

template <std::size_t count>
void addAll(sigset_t& set, const int (&numbers)[count]) {
  for (const int number : numbers) {
    sigaddset(&set, number);
  }
}

bool take(volatile sig_atomic_t& flag) {
  const bool isSet = flag != 0;
  flag = 0;
  return isSet;
}

}  // namespace

StopSignals::StopSignals(Kind kind) : kind_(kind) {
  lastSignal = 0;
  isResized = 0;
  isSuspended = 0;
  isContinued = 0;
  setHandler(SIGALRM, noteAlarm);
  setHandlers(plainSignals, noteSignal);
  if (kind_ == Kind::terminal) {
    setHandlers(terminalSignals, noteSignal);
    setHandlers(jobSignals, noteJob);
  }
}

StopSignals::~StopSignals() {
  setHandlers(plainSignals, SIG_DFL);
  if (kind_ == Kind::terminal) {
    setHandlers(terminalSignals, SIG_DFL);
    setHandlers(jobSignals, SIG_DFL);
  }
}

Status statusOfSignal(int signal) {
  return signal == SIGINT ? Status::interrupted : Status::terminated;
}

int StopSignals::received() {
  return lastSignal;
}

bool StopSignals::takeResize() {
  return take(isResized);
}

bool StopSignals::takeSuspension() {
  return take(isSuspended);
}

bool StopSignals::takeContinuation() {
  return take(isContinued);
}

int StopSignals::waitFor(pollfd* descriptors, std::size_t count, int milliseconds) {
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  addAll(blocked, plainSignals);
  addAll(blocked, terminalSignals);
  addAll(blocked, jobSignals);
  sigprocmask(SIG_BLOCK, &blocked, &before);
  timespec limit{milliseconds / 1000, milliseconds % 1000 * 1000000L};
  const bool isNoted = (lastSignal | isResized | isSuspended | isContinued) != 0;
  const int result =
      isNoted ? -1 : ::ppoll(descriptors, count, milliseconds < 0 ? nullptr : &limit, &before);
  sigprocmask(SIG_SETMASK, &before, nullptr);
  return result;
}

void suspendProgram() {
  struct sigaction standard {};
  struct sigaction before {};
  standard.sa_handler = SIG_DFL;
  ::sigaction(SIGTSTP, &standard, &before);
  ::raise(SIGTSTP);
  ::sigaction(SIGTSTP, &before, nullptr);
}

void endBySignal(int signal) {
  ::signal(signal, SIG_DFL);
  ::raise(signal);
}

}  // namespace treectl
