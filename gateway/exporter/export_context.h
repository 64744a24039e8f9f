#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string_view>

#include "gateway/exporter/outbox.h"
#include "gateway/exporter/path_rules.h"
#include "gateway/link/event_loop.h"
#include "gateway/wire/topics.h"

namespace modelgate {

/// What the parts of an exporter share. All of it outlives them, and belongs to the loop's thread.
struct ExportContext {
  EventLoop& loop;
  const Topics topics;
  const std::uint64_t epoch;
  const std::chrono::milliseconds interval;
  const std::chrono::milliseconds heartbeat;
  const PathRules allowSet;
  const PathRules json;
  const bool retainsValues;
  Outbox outbox;
  /// A server's part of the device's state has changed.
  std::function<void()> stateChanged;
  /// A line for standard error.
  std::function<void(std::string_view line, bool detail)> log;
  /// The thread of a server has ended. Called on that thread.
  std::function<void()> threadEnded = {};
};

/// The first heartbeat after values, so that it is soon seen if the last of them were lost.
inline constexpr std::chrono::milliseconds firstHeartbeat{1000};

/// The exporter's clocks, as they are sent.
[[nodiscard]] inline std::int64_t realMilliseconds() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}
[[nodiscard]] inline std::uint64_t monotonicMilliseconds(
    std::chrono::steady_clock::time_point time = std::chrono::steady_clock::now()) {
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count());
}

/// A retained message of QoS 1. Empty payload: what the broker retains is removed.
[[nodiscard]] inline Publication retained(std::string topic, std::string payload,
                                          std::string_view type = {}) {
  Publication publication;
  publication.topic = std::move(topic);
  publication.payload = std::move(payload);
  publication.qos = 1;
  publication.retain = true;
  publication.contentType = type;
  return publication;
}

}  // namespace modelgate
