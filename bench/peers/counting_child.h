#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

#include "bench/served_tree.h"

namespace bench::peers {

/// A subscriber in a process of its own that counts what arrives.
class CountingChild {
 public:
  using Count = std::atomic<unsigned long>;

  /// `body` subscribes, calls `ready` and adds each arrival to the count until the
  /// process is ended. Returns when it is ready; throws `std::runtime_error` where it
  /// ends before.
  explicit CountingChild(
      const std::function<void(Count& count, const std::function<void()>& ready)>& body);
  ~CountingChild();
  CountingChild(const CountingChild&) = delete;
  CountingChild& operator=(const CountingChild&) = delete;

  [[nodiscard]] unsigned long count() const { return count_->load(); }

  /// Waits until that many have arrived in all; throws where they do not within
  /// 20 seconds.
  void await(unsigned long count) const;

  /// Waits until nothing has arrived for 20 milliseconds; returns when the last was
  /// seen to arrive, to a millisecond. Throws where it goes on for 20 seconds.
  [[nodiscard]] std::chrono::steady_clock::time_point awaitQuiet() const;

 private:
  Count* count_;
  std::unique_ptr<Child> child_;
};

/// How many a second arrive at `subscriber` while `send` sends `number` of them and
/// until the last has come; in thousands.
double arrivalRate(const CountingChild& subscriber, unsigned long number,
                   const std::function<void()>& send);

/// How often a second `step` is done when it is done `number` times, in thousands.
double repetitionRate(unsigned long number, const std::function<void(unsigned long)>& step);

}  // namespace bench::peers
