#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>
#include <thread>

#include "tests/gateway/link/certificates.h"
#include "tests/gateway/link/loopback_listener.h"

namespace gateway_test {

/// A broker with TLS on a port of 127.0.0.1 that accepts one client, whoever it is, and then sends
/// packets as fast as the client takes them, in full records that end within a packet. It ignores
/// what the client sends. Failures throw std::system_error or std::runtime_error.
class FloodingBroker {
 public:
  /// A message of the topic "a", and an answer to a ping.
  static constexpr std::string_view message{"\x30\7\0\1a\0xyz", 9};
  static constexpr std::string_view pong{"\xd0\0", 2};

  /// Has the certificate `name`. Sends a message, and then `packet`, or several, so often; at least
  /// a record.
  FloodingBroker(const Certificates& certificates, const std::string& name, std::string_view packet,
                 std::size_t count);
  /// Its client must have gone.
  ~FloodingBroker();
  FloodingBroker(const FloodingBroker&) = delete;
  FloodingBroker& operator=(const FloodingBroker&) = delete;

  [[nodiscard]] std::string url() const {
    return "mqtts://localhost:" + std::to_string(listener_.port());
  }
  /// Whether it has sent everything. Any thread.
  [[nodiscard]] bool hasSentAll() const { return hasSentAll_; }

 private:
  void serve(std::string certificate, std::string key);

  const std::size_t packetSize_;
  const std::size_t count_;
  std::string pattern_;  ///< the packet, so often that a record begins anywhere in the first one
  LoopbackListener listener_;
  std::atomic<bool> hasSentAll_{false};
  std::thread thread_;
};

}  // namespace gateway_test
