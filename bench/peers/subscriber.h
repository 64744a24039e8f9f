#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

#include "bench/child_process.h"

namespace bench::peers {

/// A subscriber in a process of its own that counts the updates it receives.
class Subscriber {
 public:
  using Count = std::atomic<unsigned long>;
  /// Subscribes, calls `ready` and then adds each update to `count` until the process is ended.
  using Body = std::function<void(Count& count, const std::function<void()>& ready)>;

  /// Returns when `body` is ready; throws `std::runtime_error` if it ends before.
  explicit Subscriber(const Body& body);
  ~Subscriber();
  Subscriber(const Subscriber&) = delete;
  Subscriber& operator=(const Subscriber&) = delete;

  [[nodiscard]] unsigned long count() const { return count_->load(); }

  /// Waits until `count` updates have arrived in all; throws `std::runtime_error` after
  /// 20 seconds.
  void await(unsigned long count) const;

  /// Waits until no update has arrived for 20 milliseconds. Returns the time of the last
  /// arrival, to a millisecond. Throws `std::runtime_error` after 20 seconds.
  [[nodiscard]] std::chrono::steady_clock::time_point awaitQuiet() const;

 private:
  Count* count_;  ///< in memory shared with the child
  std::unique_ptr<Child> child_;
};

}  // namespace bench::peers
