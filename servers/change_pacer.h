#pragma once

#include <chrono>
#include <cstdint>

namespace modelsrvd {

/// Spreads value changes evenly over time at a fixed rate.
///
/// The caller passes the time in. If it calls late, it catches up on at most
/// `maxBacklog` worth of changes and the rest is dropped, so that a burst does not
/// delay clients.
class ChangePacer {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr std::chrono::milliseconds maxBacklog{50};

  /// `rate` changes per second, at least 1, counted from `start`.
  ChangePacer(std::uint32_t rate, Clock::time_point start) : rate_(rate), start_(start) {}

  /// The number of changes to make now; they count as made.
  [[nodiscard]] std::uint32_t take(Clock::time_point now);

  /// The time until the next change: 0 if there is one to make now, otherwise at
  /// least 1 ms, rounded up.
  [[nodiscard]] std::chrono::milliseconds wait(Clock::time_point now) const;

 private:
  /// The number of changes from `start_` to `now`.
  [[nodiscard]] std::uint64_t total(Clock::time_point now) const;

  std::uint32_t rate_;
  Clock::time_point start_;
  std::uint64_t made_ = 0;
};

}  // namespace modelsrvd
