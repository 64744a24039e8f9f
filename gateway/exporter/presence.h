#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "gateway/wire/device_state.h"

namespace modelgate {

/// Which of several exporters of one device is at work. The one that came last is; the others wait
/// until it has gone. Time comes from outside. For one thread.
class Presence {
 public:
  using Clock = std::chrono::steady_clock;

  enum class Role {
    working,  ///< connected, or connecting, with the client id of the device
    waiting,  ///< without a connection, after another one has come
    looking,  ///< with another client id: whether another one is at work
    passive,  ///< another one is at work
  };

  static constexpr std::chrono::seconds firstPause{5};
  static constexpr std::chrono::seconds longestPause{60};
  /// A retained state that has not come by then does not exist.
  static constexpr std::chrono::seconds lookTime{1};
  /// Between two notes of a passive exporter.
  static constexpr std::chrono::seconds notePeriod{30};
  /// How long a note is in the state of the one at work.
  static constexpr std::chrono::seconds noteTime{120};

  explicit Presence(std::uint64_t epoch) : epoch_(epoch) {}

  [[nodiscard]] Role role() const { return role_; }
  /// Whether the state is to say that there is another exporter.
  [[nodiscard]] bool isConflict() const { return conflictUntil_.has_value(); }

  /// A client with the same id has come.
  void takenOver(Clock::time_point now);
  /// The subscription to the state has been granted.
  void subscribed(Clock::time_point now);
  /// There is no connection any more.
  void disconnected();
  /// The state of the device, or nothing if it was removed.
  void seen(const std::optional<DeviceState>& state, Clock::time_point now);
  /// Another exporter has sent a note.
  void noted(std::uint64_t epoch, Clock::time_point now);

  /// When `tick` has something to do.
  [[nodiscard]] std::optional<Clock::time_point> deadline() const;
  /// Whether a note is to be sent. The role may change.
  [[nodiscard]] bool tick(Clock::time_point now);

 private:
  void work();

  std::uint64_t epoch_;
  Role role_ = Role::working;
  Clock::duration pause_ = firstPause;
  std::optional<Clock::time_point> takenOverAt_;
  std::optional<Clock::time_point> next_;  ///< the end of a pause or look, or the next note
  std::optional<Clock::time_point> conflictUntil_;
};

}  // namespace modelgate
