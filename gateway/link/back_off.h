#pragma once

#include <algorithm>
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

/// How long a broker may take to accept a client. If it takes the connection and does not answer in
/// time, it may have many others to serve: to begin anew costs it more than to wait, and if all do,
/// it never ends. So the next attempt may take twice as long.
class AnswerLimit {
 public:
  static constexpr std::chrono::seconds first{10};
  static constexpr std::chrono::seconds longest{80};

  [[nodiscard]] std::chrono::seconds limit() const { return limit_; }
  void missed() { limit_ = std::min(2 * limit_, longest); }
  void answered() { limit_ = first; }

 private:
  std::chrono::seconds limit_ = first;
};

}  // namespace modelgate
