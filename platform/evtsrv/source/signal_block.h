#pragma once

#include <pthread.h>

#include <cerrno>
#include <csignal>
#include <ctime>

namespace EvtSrv::internal {

/// Blocks one signal in the calling thread. If it was pending before, it stays pending.
class SignalBlock {
 public:
  explicit SignalBlock(int signal) {
    sigemptyset(&blocked_);
    sigaddset(&blocked_, signal);
    pthread_sigmask(SIG_BLOCK, &blocked_, &before_);
    // It can only have been pending if it was blocked before.
    if (sigismember(&before_, signal) == 1) {
      sigset_t pending;
      sigpending(&pending);
      wasPending_ = sigismember(&pending, signal) == 1;
    }
  }
  ~SignalBlock() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalBlock(const SignalBlock&) = delete;
  SignalBlock& operator=(const SignalBlock&) = delete;

  /// Removes the signal that a call has raised.
  void takeRaised() {
    if (wasPending_) {
      return;
    }
    const timespec noTime{};
    while (sigtimedwait(&blocked_, nullptr, &noTime) < 0 && errno == EINTR) {
    }
  }

 private:
  sigset_t blocked_{};
  sigset_t before_{};
  bool wasPending_ = false;
};

}  // namespace EvtSrv::internal
