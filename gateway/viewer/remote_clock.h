#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace modelgate {

/// Estimates an exporter's monotonic clock from what it sends: a lower bound, since a message takes
/// time.
class RemoteClock {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// A message with this time, in milliseconds, has arrived.
  void heard(std::uint64_t monotonic, Time now) {
    const std::int64_t offset = static_cast<std::int64_t>(monotonic) - milliseconds(now);
    // The best of the last messages: one that was delayed says less. Not for long, because the
    // clocks run at different rates, and stop while a device sleeps.
    if (!offset_ || offset >= *offset_ || now - measured_ > std::chrono::seconds(10)) {
      offset_ = offset;
      measured_ = now;
    }
  }

  /// The exporter's clock at `now`; empty before the first message.
  [[nodiscard]] std::optional<std::uint64_t> at(Time now) const {
    if (!offset_ || *offset_ + milliseconds(now) < 0) {
      return std::nullopt;
    }
    return static_cast<std::uint64_t>(*offset_ + milliseconds(now));
  }

  /// Another exporter has begun, with another clock.
  void reset() { offset_.reset(); }

 private:
  static std::int64_t milliseconds(Time time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
  }

  std::optional<std::int64_t> offset_;
  Time measured_;
};

}  // namespace modelgate
