#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "gateway/link/event_loop.h"
#include "gateway/link/link_options.h"

namespace modelgate {

/// A connection to an MQTT 5 broker that is made again, with a back-off of 0.1 to 5 s, whenever it
/// is lost. Each begins clean: nothing that was queued for the one before it is delivered or sent.
/// Nothing here blocks; a host name is resolved on a thread of its own. Certificates are read again
/// for each connection.
///
/// Threads: that of the loop, which must outlive the object. Handlers run in the loop. They may
/// call every function of the object, but not destroy it.
///
/// The process must ignore SIGPIPE: a broker may go while something is written to it.
class BrokerLink {
 public:
  struct Handlers {
    std::function<void()> connected;  ///< the broker accepted; subscribe now
    /// The connection is lost, or could not be made; a new one follows. `reason` is a line for a
    /// person; `takenOver` if the broker says that another client of the same id has come.
    /// Mosquitto 2.0.11 says nothing and just closes the connection, as it does when it ends
    /// itself.
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
  /// not sent), and then calls `done`; `disconnected` is not called. Without a connection `done` is
  /// called as soon as the loop continues. Nothing follows: `start` makes no new connection.
  void finish(std::optional<Publication> last, std::chrono::milliseconds limit,
              std::function<void()> done);
  /// Breaks the connection off, without a call of `disconnected`, and makes no new one before
  /// `delay` has passed.
  void backOff(std::chrono::milliseconds delay);

  [[nodiscard]] bool isConnected() const;

  /// False without a connection, and for what the broker cannot take, such as too large a payload:
  /// nothing is queued then.
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
