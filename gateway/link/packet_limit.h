#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace modelgate {

/// Notices a broker that sends a larger packet than it may.
///
/// CONNECT states the largest packet, but the client library does not check what arrives: it takes
/// memory for whatever length the packet states, 256 MiB at most, and keeps it until the packet is
/// whole. So this counts what a TCP connection receives without a packet being completed. It comes
/// too late if the broker sends without TLS and faster than this process reads, which no network
/// lets it. A broker at a Unix socket, which is on this machine, is trusted. For one thread.
class PacketLimit {
 public:
  using Clock = std::chrono::steady_clock;

  /// The largest packet, with or without TLS around it.
  static constexpr std::size_t maxPacket = std::size_t{5} * 1024 * 1024;

  /// To be called after each turn of reading from `descriptor`, which may be -1. `isWhole`: a
  /// packet that a handler gets was completed in this turn. True once more than a packet has been
  /// received since the last such turn. Only a turn without one costs a system call.
  [[nodiscard]] bool isExceeded(int descriptor, bool isWhole, Clock::time_point now);

 private:
  /// What had been received after the first turn without a packet, and when that was.
  struct Start {
    std::uint64_t bytes;
    Clock::time_point time;
  };
  std::optional<Start> start_;
};

}  // namespace modelgate
