#pragma once

#include <algorithm>
#include <cstdint>

namespace EvtSrv::internal {

/// How long a client waits before it tries to connect again by itself, and a server before it
/// tries again to make its mailbox. What fails each time, such as a connection to a server that
/// comes up broken, costs one attempt a delay; the delay doubles from `firstMs` to `lastMs`.
/// Times are of the monotonic clock, in milliseconds.
class BackOff {
 public:
  static constexpr int firstMs = 100;
  static constexpr int lastMs = 5000;
  /// A connection that lasts this long shows that the server works.
  static constexpr int provenMs = 1000;

  void connected(std::int64_t now) { connectedAt_ = now; }

  /// The connection was lost: no delay if it had lasted, else as after a failed attempt.
  void lost(std::int64_t now) {
    if (now - connectedAt_ >= provenMs) {
      delay_ = 0;
      notBefore_ = now;
    } else {
      failed(now);
    }
  }

  /// An attempt has failed. A client does not count that there is no server.
  void failed(std::int64_t now) {
    delay_ = std::clamp(2 * delay_, firstMs, lastMs);
    notBefore_ = now + delay_;
  }

  /// The time until the next attempt; 0 if it may begin.
  [[nodiscard]] int remaining(std::int64_t now) const {
    return static_cast<int>(std::clamp<std::int64_t>(notBefore_ - now, 0, lastMs));
  }

 private:
  std::int64_t connectedAt_ = 0;
  std::int64_t notBefore_ = 0;
  int delay_ = 0;
};

}  // namespace EvtSrv::internal
