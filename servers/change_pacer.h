#pragma once

#include <chrono>
#include <cstdint>

namespace modelsrvd {

/// When how many values are to change, so that it comes to a number a second.
///
/// Time comes in from outside. A caller that is late is owed at most what falls
/// into `longestDebt`; the rest is dropped, so that no burst holds clients up.
class ChangePacer {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr std::chrono::milliseconds longestDebt{50};

  /// `rate` changes a second, at least 1, counted from `start`.
  ChangePacer(std::uint32_t rate, Clock::time_point start) : rate_(rate), start_(start) {}

  /// How many changes are due; they count as made.
  [[nodiscard]] std::uint32_t take(Clock::time_point now);

  /// How long until the next change is due: 0 where one is, else at least 1 ms,
  /// rounded up.
  [[nodiscard]] std::chrono::milliseconds wait(Clock::time_point now) const;

 private:
  /// How many changes fall into the time from `start_` to `now`.
  [[nodiscard]] std::uint64_t total(Clock::time_point now) const;

  std::uint32_t rate_;
  Clock::time_point start_;
  std::uint64_t made_ = 0;
};

}  // namespace modelsrvd
