#pragma once

#include <poll.h>

#include <chrono>
#include <functional>

namespace evtsrv_tests {

/// An event loop that has nothing but poll(2), and the one descriptor of a manager: what is
/// not announced there is not done.
class PollLoop {
 public:
  using Clock = std::chrono::steady_clock;

  /// `receive` is `receiveEvent(0)`, `descriptor` the poll descriptor.
  PollLoop(int descriptor, std::function<void()> receive)
      : descriptor_(descriptor), receive_(std::move(receive)) {}

  /// Dispatches until `done()`; false after 20 s.
  bool runUntil(const std::function<bool()>& done) {
    const Clock::time_point end = Clock::now() + std::chrono::seconds(20);
    while (!done()) {
      if (!runOnce(end)) {
        return false;
      }
    }
    return true;
  }

  /// Dispatches until nothing has been announced for `quiet`; returns how often something
  /// was.
  int runUntilQuiet(std::chrono::milliseconds quiet = std::chrono::milliseconds(50)) {
    const int before = wakeUps_;
    while (runOnce(Clock::now() + quiet)) {
    }
    return wakeUps_ - before;
  }

  /// Dispatches for this time; returns how often something was announced.
  int runFor(std::chrono::milliseconds time) {
    const int before = wakeUps_;
    const Clock::time_point end = Clock::now() + time;
    while (runOnce(end)) {
    }
    return wakeUps_ - before;
  }

  /// Whether something is announced now.
  [[nodiscard]] bool isReadable() const {
    pollfd one{descriptor_, POLLIN, 0};
    return ::poll(&one, 1, 0) == 1;
  }

  [[nodiscard]] int wakeUps() const { return wakeUps_; }

 private:
  bool runOnce(Clock::time_point end) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    pollfd one{descriptor_, POLLIN, 0};
    if (left.count() < 0 || ::poll(&one, 1, static_cast<int>(left.count())) != 1) {
      return false;
    }
    ++wakeUps_;
    receive_();
    return true;
  }

  int descriptor_;
  std::function<void()> receive_;
  int wakeUps_ = 0;
};

}  // namespace evtsrv_tests
