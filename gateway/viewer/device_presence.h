#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace modelgate {

/// Whether a device is there, by what has been heard of it and when. Knows no clock: every function
/// gets the time.
class DevicePresence {
 public:
  using Clock = std::chrono::steady_clock;
  using Time = Clock::time_point;

  enum class State {
    unknown,  ///< nothing has been heard of it
    online,
    offline,  ///< its state says so
    silent,   ///< its state says that it is online, but nothing is heard of it
  };

  /// What the device's state says.
  struct Statement {
    bool online = false;
    bool retained = false;  ///< the broker had kept it: the device may be gone since
    std::uint64_t epoch = 0;
    std::uint64_t monotonic = 0;
    std::chrono::milliseconds heartbeat{10'000};
    /// Since the device has said so, if that is known of one that the broker had kept.
    std::optional<std::chrono::milliseconds> age = std::nullopt;
  };

  void stated(const Statement& statement, Time now);
  /// The broker has no state of it any more.
  void cleared();
  /// The device has just sent another message.
  void heard(Time now);
  /// The connection to the broker.
  void connected(Time now);
  void disconnected(Time now);
  /// Whether it is to send something in each heartbeat, since this viewer watches one of its
  /// servers.
  void watch(bool watched, Time now);
  /// Lets time pass: `silent` if nothing was heard for 2.5 heartbeats of what should have been.
  void advance(Time now);

  [[nodiscard]] State state() const { return state_; }
  [[nodiscard]] bool isOnline() const { return state_ == State::online; }
  /// Whether a request has a chance.
  [[nodiscard]] bool isReachable() const { return isOnline() && isConnected_; }
  /// Whether a request would show that a silent device is there after all.
  [[nodiscard]] bool needsProbe() const { return state_ == State::silent && isConnected_; }
  /// When `advance` is due; empty if nothing is awaited.
  [[nodiscard]] std::optional<Time> deadline() const;
  [[nodiscard]] std::optional<Time> lastHeard() const { return lastHeard_; }
  /// How long it may be silent.
  [[nodiscard]] Clock::duration limit() const;

 private:
  State state_ = State::unknown;
  bool isConnected_ = false;
  bool isConfirmed_ = false;  ///< something was heard on this connection
  bool isWatched_ = false;
  Time connectionChanged_;
  Time watchBegan_;
  std::optional<Time> lastHeard_;
  Statement statement_;
};

}  // namespace modelgate
