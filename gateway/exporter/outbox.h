#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <optional>

#include "gateway/link/broker_link.h"

namespace modelgate {

/// What waits to be published, in the order replies, then retained messages. What waits is bounded:
/// retained messages are made when they are published, each source of them waits once, and replies
/// beyond the limits are dropped, as those that a broker that takes nothing would let expire. For
/// one thread.
class Outbox {
 public:
  /// Makes a retained message; none if there is none, or none any more. It does not use the outbox.
  using Producer = std::function<std::optional<Publication>()>;

  static constexpr std::size_t maxReplies = 1024;
  /// The most bytes of the replies that wait.
  static constexpr std::size_t maxBytes = std::size_t{16} * 1024 * 1024;

  struct Link {
    std::function<bool()> isConnected;
    std::function<bool()> hasCapacity;  ///< false without a connection
    std::function<void(const Publication&)> publish;
  };

  explicit Outbox(Link link) : link_(std::move(link)) {}

  /// Publishes the reply, at once if nothing waits and there is capacity. False if it is dropped.
  bool pushReply(Publication reply);
  /// The producer is called by this function or by `pump`: once, or with `isSeries` until it makes
  /// no message. It takes the place of one that waits with the same `source`, which is an address
  /// of what it publishes. False, and nothing happens, without a connection: with the next one
  /// everything is published again.
  bool pushRetained(const void* source, Producer producer, bool isSeries = false);

  /// Publishes what waits while there is capacity. Whether nothing waits any more and there is
  /// capacity for more.
  bool pump();

  [[nodiscard]] bool hasCapacity() const { return link_.hasCapacity(); }

  /// Publishes a message that nothing waits for. Call it only after `pump` has returned true.
  void publish(const Publication& publication) { link_.publish(publication); }

  /// Drops everything, for a connection that is lost.
  void clear();

 private:
  struct Retained {
    const void* source;
    Producer producer;
    bool isSeries;
  };

  void publishRetained();

  Link link_;
  std::deque<Publication> replies_;
  std::size_t replyBytes_ = 0;
  std::deque<Retained> retained_;
};

}  // namespace modelgate
