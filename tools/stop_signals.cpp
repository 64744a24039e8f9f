#include "tools/stop_signals.h"

#include <signal.h>

namespace treectl {

namespace {

volatile sig_atomic_t lastSignal = 0;
constexpr int stopSignals[] = {SIGINT, SIGTERM};

void noteSignal(int number) {
  lastSignal = number;
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

}  // namespace

StopSignals::StopSignals() {
  lastSignal = 0;
  for (const int number : stopSignals) {
    setHandler(number, noteSignal);
  }
}

StopSignals::~StopSignals() {
  for (const int number : stopSignals) {
    setHandler(number, SIG_DFL);
  }
}

Status statusOfSignal(int signal) {
  return signal == SIGINT ? Status::interrupted : Status::terminated;
}

int StopSignals::received() {
  return lastSignal;
}

int StopSignals::waitFor(pollfd* descriptors, std::size_t count, int milliseconds) {
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  for (const int number : stopSignals) {
    sigaddset(&blocked, number);
  }
  sigprocmask(SIG_BLOCK, &blocked, &before);
  timespec limit{milliseconds / 1000, milliseconds % 1000 * 1000000L};
  const int result =
      lastSignal != 0 ? -1
                      : ::ppoll(descriptors, count, milliseconds < 0 ? nullptr : &limit, &before);
  sigprocmask(SIG_SETMASK, &before, nullptr);
  return result;
}

}  // namespace treectl
