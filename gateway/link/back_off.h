#pragma once

#include <chrono>
#include <random>

namespace modelgate {

/// When to connect again: 0.1 s after a connection is lost, and up to 5 s after several that did
/// not last. Not all clients of a broker that comes back come at once: the time is random, at least
/// half of what it may be.
class BackOff {
 public:
  using Clock = std::chrono::steady_clock;
  using milliseconds = std::chrono::milliseconds;

  static constexpr milliseconds first{100};
  static constexpr milliseconds longest{5000};

  explicit BackOff(unsigned seed) : random_(seed) {}

  void connected(Clock::time_point now) { connected_ = now; }
  /// How long to wait from `now` on, when a connection has failed or was lost.
  milliseconds lost(Clock::time_point now);

 private:
  std::minstd_rand random_;
  Clock::time_point connected_{};
  milliseconds next_ = first;
};

}  // namespace modelgate
