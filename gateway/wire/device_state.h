#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace modelgate {

/// What a device's state says about one of its servers.
struct ServerState {
  /// Whether the server runs. If not, the rest is what it was last.
  bool up = true;
  std::uint64_t shape = 0;         ///< the shape's version; grows with each change of the shape
  std::vector<std::string> pages;  ///< the hashes of the shape's pages, in order
  std::uint64_t parts = 0;

  bool operator==(const ServerState&) const = default;
};

/// How long the broker keeps the state of a device.
inline constexpr std::chrono::hours stateExpiry{1};

/// The retained message of topic `state`, a JSON object. That of a device that is not online, such
/// as the last will, has `online` and `epoch`, and of the rest what is not the default.
struct DeviceState {
  bool online = false;
  std::uint64_t epoch = 0;  ///< of the exporter's process, random; at most `maxExact`
  /// Whether another exporter uses the device's name, too.
  bool conflict = false;
  std::uint64_t heartbeat = 10'000;       ///< milliseconds between two heartbeats in `upd/S`
  std::uint64_t interval = 50;            ///< milliseconds between two batches
  std::int64_t time = 0;                  ///< as in `Batch`
  std::uint64_t monotonic = 0;            ///< as in `Batch`
  std::vector<std::string> capabilities;  ///< at most 64 lines of 64 bytes
  std::string version;  ///< of the exporter's program, for a person; a line of at most 64 bytes
  std::map<std::string, ServerState> servers;  ///< by S, the name in topics

  bool operator==(const DeviceState&) const = default;
};

[[nodiscard]] std::string encodeState(const DeviceState& state);
/// Empty if `payload` is no such object, or has wrong or too many entries: a heartbeat of less than
/// 100 ms or more than 1 h, an interval of more than 10 s, no hashes, and what the limits exclude.
/// Unknown keys are ignored. Nesting is bounded.
[[nodiscard]] std::optional<DeviceState> decodeState(std::string_view payload);

}  // namespace modelgate
