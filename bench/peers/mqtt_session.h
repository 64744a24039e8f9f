#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "bench/peers/unix_stream.h"

namespace bench::peers {

/// A client of an MQTT broker (MQTT 3.1.1) at a Unix socket.
class MqttSession {
 public:
  MqttSession(const std::string& socket, std::string_view clientId);

  /// The packet that publishes `payload`; with an acknowledgement (quality of
  /// service 1) where `packetId` is not 0.
  static std::string publication(std::string_view topic, std::string_view payload, bool retained,
                                 std::uint16_t packetId = 0);

  void send(std::string_view packets) const { stream_.send(packets); }

  /// Waits for the acknowledgement of a publication that wants one.
  void awaitAcknowledgement() { stream_.skip(4); }

  /// Waits until the broker has taken all that was sent without one.
  void awaitTaken();

  /// Subscribes with the lowest quality of service.
  void subscribe(std::string_view topic);

  [[nodiscard]] UnixStream& stream() { return stream_; }

 private:
  UnixStream stream_;
};

}  // namespace bench::peers
