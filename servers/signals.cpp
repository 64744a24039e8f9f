#include "servers/signals.h"

#include <signal.h>

#include <array>
#include <atomic>
#include <cerrno>

namespace modelsrvd {

namespace {

// A signal handler may access lock-free atomics only.
std::atomic<EvtSrv::EventPortManager*> managerToWake{nullptr};
std::atomic<bool> stopFlag{false};
std::atomic<bool> reloadFlag{false};
std::atomic<bool> fileFlag{false};
static_assert(std::atomic<EvtSrv::EventPortManager*>::is_always_lock_free &&
              std::atomic<bool>::is_always_lock_free);

extern "C" void recordSignal(int number) {
  const int savedErrno = errno;
  if (number == SIGHUP) {
    reloadFlag.store(true);
  } else if (number == SIGIO) {
    fileFlag.store(true);
  } else {
    stopFlag.store(true);
  }
  if (EvtSrv::EventPortManager* const manager = managerToWake.load()) {
    manager->wake();
  }
  errno = savedErrno;
}

constexpr std::array<int, 4> handledSignals{SIGINT, SIGTERM, SIGHUP, SIGIO};

bool setAction(int number, void (*action)(int)) {
  struct sigaction entry {};
  entry.sa_handler = action;
  entry.sa_flags = SA_RESTART;
  sigemptyset(&entry.sa_mask);
  return ::sigaction(number, &entry, nullptr) == 0;
}

}  // namespace

Signals::Signals(EvtSrv::EventPortManager& manager) {
  stopFlag.store(false);
  reloadFlag.store(false);
  fileFlag.store(false);
  managerToWake.store(&manager);
  // The parent process may have blocked the signals.
  sigset_t toUnblock;
  sigemptyset(&toUnblock);
  installed_ = setAction(SIGPIPE, SIG_IGN);
  // A write beyond the limit of file sizes then fails with an error.
  installed_ = setAction(SIGXFSZ, SIG_IGN) && installed_;
  for (const int number : handledSignals) {
    installed_ = setAction(number, recordSignal) && installed_;
    sigaddset(&toUnblock, number);
  }
  installed_ = ::sigprocmask(SIG_UNBLOCK, &toUnblock, nullptr) == 0 && installed_;
}

Signals::~Signals() {
  for (const int number : handledSignals) {
    setAction(number, SIG_IGN);
  }
  managerToWake.store(nullptr);
}

bool Signals::stopRequested() const {
  return stopFlag.load();
}

bool Signals::takeReloadRequest() {
  return reloadFlag.exchange(false);
}

bool Signals::takeFileChange() {
  // The common case writes nothing.
  return fileFlag.load() && fileFlag.exchange(false);
}

}  // namespace modelsrvd
