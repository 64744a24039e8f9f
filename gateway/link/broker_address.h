#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace modelgate {

/// Where the broker is: "mqtt://HOST[:PORT]", "mqtts://HOST[:PORT]" or "unix:/PATH".
struct BrokerAddress {
  bool tls = false;
  std::string host;  ///< empty for a Unix socket
  int port = 0;      ///< 1883, or 8883 with TLS, unless the URL states it
  std::string path;  ///< of a Unix socket
};

/// Empty, with the reason in `error`, if `url` is none of these. IPv6 as "[::1]".
[[nodiscard]] std::optional<BrokerAddress> parseBroker(std::string_view url, std::string& error);

}  // namespace modelgate
