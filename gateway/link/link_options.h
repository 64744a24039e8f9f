#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "gateway/link/broker_address.h"

namespace modelgate {

/// A message to be published.
struct Publication {
  std::string topic;
  std::string payload;
  int qos = 0;
  bool retain = false;
  std::optional<std::chrono::seconds> expiry;  ///< none: it does not expire
  std::string contentType;                     ///< empty: none
  std::string responseTopic;                   ///< empty: none
  std::string correlation;                     ///< bytes; empty: none
};

/// A message that has arrived. Views are valid during the call only.
struct Message {
  std::string_view topic;
  std::string_view payload;
  bool retained = false;
  /// This process did not run for a while before it read the message, which may have waited then.
  bool isDelayed = false;
  /// What was left when the broker sent it; none: it does not expire.
  std::optional<std::chrono::seconds> expiry;
  std::string_view contentType;
  std::string_view responseTopic;
  std::string_view correlation;
};

struct LinkOptions {
  BrokerAddress broker;
  std::string clientId;
  std::string user;      ///< empty: none
  std::string password;  ///< empty: none
  std::string caFile;    ///< empty with TLS: the system's certificates
  std::string certFile;  ///< empty: no certificate
  std::string keyFile;
  std::optional<Publication> will;
  std::chrono::seconds willDelay{5};
  /// Between two messages to the broker at most, 5 s to 18 h. A connection that is silent for 1.5
  /// times as long is lost.
  std::chrono::seconds keepAlive{10};
};

}  // namespace modelgate
