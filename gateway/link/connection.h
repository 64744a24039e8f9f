#pragma once

#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "gateway/link/link_options.h"
#include "gateway/link/packet_limit.h"
#include "gateway/link/read_limit.h"

struct mosquitto;

namespace modelgate {

class TlsContext;

/// One connection to a broker, from the first attempt to its end: an MQTT client without a loop.
/// The owner waits until the descriptor is ready and then calls `process`.
///
/// For one thread. Nothing blocks. Once it has ended it is of no use but for its reason.
class Connection {
 public:
  /// What arrives, called inside `process`. A listener may publish and subscribe, but not destroy
  /// the connection.
  class Listener {
   public:
    virtual void messageArrived(const Message& message) = 0;
    /// The publication `id` was taken by the broker (QoS 1) or written (QoS 0); `reason` is that of
    /// MQTT 5, from 128 on a refusal.
    virtual void published(int id, int reason) = 0;
    virtual void subscriptionTaken(int id, bool granted) = 0;

   protected:
    ~Listener() = default;
  };

  /// Begins to connect: to `address`, of the network, or to the Unix socket of the options. `tls`
  /// may be null. If that fails at once, the connection has ended. Throws std::bad_alloc.
  Connection(const LinkOptions& options, const std::string& address,
             std::shared_ptr<TlsContext> tls, Listener& listener);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// -1 once the connection has ended.
  [[nodiscard]] int descriptor() const;
  /// What to wait for: POLLIN, and POLLOUT as long as something is to be written. POLLOUT alone
  /// while a broker that goes on sending reads nothing of what it gets.
  [[nodiscard]] short events() const;

  /// Reads a bounded amount, writes and calls the listener. What is left is in the socket, which
  /// stays readable. False once the connection has ended.
  bool process();
  /// Sends a ping if it is time for one; to be called a few times in each keep-alive period. False
  /// once the connection has ended.
  bool tick();
  /// Ends the connection for a reason that the owner has found.
  void end(std::string reason);

  /// Whether the broker has accepted the client.
  [[nodiscard]] bool isAccepted() const { return accepted_; }
  [[nodiscard]] bool hasEnded() const { return ended_; }
  /// Why it has ended: a line for a person.
  [[nodiscard]] const std::string& reason() const { return reason_; }
  [[nodiscard]] bool takenOver() const;

  /// Whether everything was written. Inside `process` nothing is written.
  [[nodiscard]] bool isFlushed() const;

  /// The id of the publication, subscription or the like that was begun; 0 if it was not.
  int publish(const Publication& publication);
  int subscribe(const std::string& filter, int qos);
  bool unsubscribe(const std::string& filter);
  /// Writes what there is and DISCONNECT; then the connection has ended. The broker does not send
  /// the will. Not inside `process`.
  void disconnect();

 private:
  static void require(int result);
  void configure(const LinkOptions& options);
  void setWill(const Publication& will, std::chrono::seconds delay);
  void connect(const LinkOptions& options, const std::string& address);
  void setCallbacks();
  bool step();
  bool check(int result);
  bool checkHandshake(int error);
  void fail(int result, int error);
  [[nodiscard]] bool isHandshaking() const;
  [[nodiscard]] bool hasPendingInput() const;
  bool peerHasGone();
  void read();
  [[nodiscard]] bool isReading() const;
  template <typename Call>
  void callListener(const Call& call);
  void rethrow();

  struct Callbacks;

  Listener& listener_;
  std::shared_ptr<TlsContext> tls_;
  ReadLimit readLimit_;
  PacketLimit packetLimit_;
  mosquitto* client_ = nullptr;
  bool accepted_ = false;
  bool ended_ = false;
  bool processing_ = false;
  std::size_t calls_ = 0;         ///< of the listener
  bool isWhole_ = false;          ///< a packet was completed in this turn
  std::size_t contents_ = 0;      ///< bytes of the messages that have arrived in this turn
  std::size_t unanswered_ = 0;    ///< packets, about, that were read since output waits
  std::exception_ptr exception_;  ///< of the listener
  int refusal_ = 0;       ///< the reason of CONNACK or DISCONNECT, if it was none of success
  std::string tlsError_;  ///< the last one while connecting
  std::string reason_;
};

}  // namespace modelgate
