#include "gateway/link/packet_limit.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace modelgate {

namespace {

/// Replies to pings, of which no handler learns, take less than that.
constexpr std::uint64_t pongBytesPerSecond = 64;

/// Of the whole connection; nothing if it is not one of TCP, or the system does not say.
std::optional<std::uint64_t> receivedBytes(int descriptor) {
  tcp_info info{};
  socklen_t size = sizeof info;
  if (::getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &size) != 0 ||
      size < offsetof(tcp_info, tcpi_bytes_received) + sizeof info.tcpi_bytes_received) {
    return std::nullopt;
  }
  return info.tcpi_bytes_received;
}

}  // namespace

bool PacketLimit::isExceeded(int descriptor, bool isWhole, Clock::time_point now) {
  if (isWhole) {
    start_.reset();
    return false;
  }
  const std::optional<std::uint64_t> bytes = receivedBytes(descriptor);
  if (!bytes) {
    return false;
  }
  if (!start_) {
    start_ = Start{*bytes, now};
  }
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now - start_->time);
  return *bytes - start_->bytes >
         maxPacket + pongBytesPerSecond * static_cast<std::uint64_t>(seconds.count());
}

}  // namespace modelgate
