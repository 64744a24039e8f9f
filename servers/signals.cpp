#include "servers/signals.h"

#include <signal.h>

#include <array>
#include <atomic>
#include <cerrno>

namespace modelsrvd {

namespace {

// A handler may touch lock-free atomics only.
std::atomic<EvtSrv::EventPortManager*> wakened{nullptr};
std::atomic<bool> endAsked{false};
std::atomic<bool> reloadAsked{false};
static_assert(std::atomic<EvtSrv::EventPortManager*>::is_always_lock_free &&
              std::atomic<bool>::is_always_lock_free);

extern "C" void noteSignal(int number) {
  const int kept = errno;
  (number == SIGHUP ? reloadAsked : endAsked).store(true);
  if (EvtSrv::EventPortManager* const manager = wakened.load()) {
    manager->wake();
  }
  errno = kept;
}

constexpr std::array<int, 3> handled{SIGINT, SIGTERM, SIGHUP};

bool setAction(int number, void (*action)(int)) {
  struct sigaction entry {};
  entry.sa_handler = action;
  entry.sa_flags = SA_RESTART;
  sigemptyset(&entry.sa_mask);
  return ::sigaction(number, &entry, nullptr) == 0;
}

}  // namespace

Signals::Signals(EvtSrv::EventPortManager& manager) {
  endAsked.store(false);
  reloadAsked.store(false);
  wakened.store(&manager);
  // Whoever started the program may have blocked them.
  sigset_t ours;
  sigemptyset(&ours);
  set_ = setAction(SIGPIPE, SIG_IGN);
  for (const int number : handled) {
    set_ = setAction(number, noteSignal) && set_;
    sigaddset(&ours, number);
  }
  set_ = ::sigprocmask(SIG_UNBLOCK, &ours, nullptr) == 0 && set_;
}

Signals::~Signals() {
  for (const int number : handled) {
    setAction(number, SIG_IGN);
  }
  wakened.store(nullptr);
}

bool Signals::ended() const {
  return endAsked.load();
}

bool Signals::takeReload() {
  return reloadAsked.exchange(false);
}

}  // namespace modelsrvd
