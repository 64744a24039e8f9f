#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "evtsrv/source/port_client.h"
#include "modelsrv/source/client_subscriptions.h"
#include "modelsrv/source/client_watches.h"
#include "modelsrv/source/requests.h"

namespace ModelSrv::internal {

/// Renews a client's subscriptions, and then its watches, on a new connection, and ends watches
/// that the server has and the client has not. It sends the
/// requests in batches: a dispatch sends one, and the next follows when the replies have arrived; a
/// request of the program that cannot go before them waits for all. Guarded by the client mutex.
class Renewal {
 public:
  /// `port` outlives this.
  Renewal(EvtSrv::internal::PortClient& port, std::shared_ptr<ClientSubscriptions> subscriptions,
          std::shared_ptr<ClientWatches> watches)
      : port_(port), subscriptions_(std::move(subscriptions)), watches_(std::move(watches)) {}

  /// The request that begins a watch, which may wait for its part.
  [[nodiscard]] static RequestView requestFor(const ClientWatch& watch, bool mayBeAbsent);
  [[nodiscard]] static RequestView requestToEnd(WatchNumber number);

  /// There is a new connection: no subscription is renewed yet.
  void begin();

  /// Whether the server has every subscription and watch, or has refused it, and no other.
  [[nodiscard]] bool isComplete() const {
    return waiting_.empty() && absent_.empty() && !subscriptions_->firstLost().has_value() &&
           !watches_->firstLost().has_value() && !watches_->firstToEnd().has_value();
  }

  /// Sends the next batch if the replies to the previous one have arrived. Does not wait. An
  /// error, such as to be out of memory, ends the connection.
  void sendBatch();

  /// Waits until the renewal is complete. After a time-out it goes on as the server replies.
  EvtSrv::EvtRes finish(EvtSrv::internal::Deadline& deadline);

  /// The reply to the first request that has none has arrived. Returns whether the batch is
  /// complete.
  bool replyReceived(std::uint16_t code);

 private:
  using Key = ClientSubscriptions::Key;

  enum class Support { unknown, yes, no };

  struct Request {
    Key key;  ///< the number, if it is of a watch
    Operation operation;
  };

  EvtSrv::EvtRes postBatch();
  EvtSrv::EvtRes post(Key key, const RequestView& request);

  EvtSrv::internal::PortClient& port_;
  std::shared_ptr<ClientSubscriptions> subscriptions_;
  std::shared_ptr<ClientWatches> watches_;
  std::vector<Request> waiting_;             ///< the requests of this batch
  std::size_t replied_ = 0;                  ///< how many of them have their reply
  std::vector<Key> absent_;                  ///< whose parts the server does not have
  Support renewSupport_ = Support::unknown;  ///< whether the server knows `Operation::renew`
  std::vector<std::uint8_t> payload_;
};

}  // namespace ModelSrv::internal
