#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "gateway/link/event_loop.h"

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
  /// Between two messages to the broker at most. A connection that is silent for 1.5 times as long
  /// is lost.
  std::chrono::seconds keepAlive{10};
};

/// A connection to an MQTT 5 broker that is made again, with a back-off of 0.1 to 5 s, whenever it
/// is lost. Each begins clean: nothing that was queued for the one before it is delivered or sent.
/// Nothing here blocks but, for the first connection to a host name, its resolution.
///
/// Threads: that of the loop, which must outlive the object. Handlers run in the loop.
class BrokerLink {
 public:
  struct Handlers {
    std::function<void()> connected;  ///< the broker accepted; subscribe now
    /// The connection is lost, or could not be made. `reason` is a line for a person;
    /// `takenOver` if another client of the same id has come.
    std::function<void(std::string_view reason, bool takenOver)> disconnected;
    std::function<void(const Message& message)> message;
    /// The broker has taken a subscription, in the order of the `subscribe` calls. `granted` is
    /// false if it refused.
    std::function<void(std::string_view filter, bool granted)> subscribed;
    /// What was published has left, after `hasCapacity` was false.
    std::function<void()> writable;
    /// Optional. A publication of QoS 1 was refused by the broker, such as by its access rules.
    std::function<void(std::string_view topic, std::string_view reason)> refused;
  };

  /// Throws std::bad_alloc, or std::runtime_error with a line for a person for options that
  /// cannot work, such as a certificate that cannot be read.
  BrokerLink(EventLoop& loop, LinkOptions options, Handlers handlers);
  ~BrokerLink();
  BrokerLink(const BrokerLink&) = delete;
  BrokerLink& operator=(const BrokerLink&) = delete;

  /// Begins to connect.
  void start();
  /// Publishes `last`, if there is one, disconnects in good order within `limit` (so the will is
  /// not sent), and then calls `done`. Without a connection at once.
  void finish(std::optional<Publication> last, std::chrono::milliseconds limit,
              std::function<void()> done);
  /// Breaks the connection off and makes no new one before `delay` has passed.
  void backOff(std::chrono::milliseconds delay);

  [[nodiscard]] bool isConnected() const;

  /// False without a connection: nothing is queued then.
  bool publish(const Publication& publication);
  bool subscribe(std::string_view filter, int qos);
  bool unsubscribe(std::string_view filter);

  /// Whether everything that was published has left for the system, and fewer than 20 publications
  /// of QoS 1 wait for the broker. If not, `writable` follows.
  [[nodiscard]] bool hasCapacity() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace modelgate
