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

int StopSignals::received() {
  return lastSignal;
}

}  // namespace treectl
