#pragma once

#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "evtsrv/source/port_client.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/cache/reply_cache.h"
#include "modelsrv/source/client_subscriptions.h"
#include "modelsrv/source/client_watches.h"
#include "modelsrv/source/connection_history.h"
#include "modelsrv/source/description.h"
#include "modelsrv/source/id_chain.h"
#include "modelsrv/source/renewal.h"
#include "modelsrv/source/replies.h"
#include "modelsrv/source/requests.h"
#include "modelsrv/source/updates.h"

namespace ModelSrv::internal {

/// A client root's connection to its server. Makes requests, or serves them from the cache;
/// connects again after the connection was lost; keeps the subscriptions and renews them;
/// passes events to the root's port, those of the connection's life included. Guarded by the client
/// mutex.
class ClientSide final : public EvtSrv::internal::EventSink,
                         private EvtSrv::internal::DeferredWork {
 public:
  explicit ClientSide(ModelRoot& root);

  /// Connects to port `name`. A previous connection and its subscriptions end first.
  ModelRes connect(const std::string& name);

  /// Ends the connection and its subscriptions. Nothing connects again.
  void close();

  /// See `ModelRoot::serverOwner`.
  [[nodiscard]] std::optional<uid_t> serverOwner() const { return port_.serverOwner(); }

  // Requests about the part at `chain`. The output is replaced on success, and unchanged
  // otherwise.

  ModelRes childIds(ChainView chain, std::vector<ModelPartId>& ids);
  ModelRes childNames(ChainView chain, std::vector<std::string>& names);
  ModelRes elementSum(ChainView chain, std::uint16_t& sum);
  ModelRes elementNames(ChainView chain, std::vector<std::string>& names);
  ModelRes save(ChainView chain, std::ostringstream& text, ModelPartIndex index);
  /// The same without a stream: to make one, a program needs all of the C++ library's locales.
  ModelRes save(ChainView chain, std::string& text, ModelPartIndex index);
  /// If the server refuses the store with a reason, `reason` is set unless it is null.
  ModelRes load(ChainView chain, std::string_view text, bool flag, ModelPartIndex index,
                std::string* reason);
  ModelRes describe(ChainView chain, PartDescription& description);
  /// Requests a page of the subtree at `chain`: from its beginning, or what follows the part with
  /// the ids `position` below it. Sets `page` and its byte order. `ModelRes_NotSupported` if the
  /// server knows no pages.
  ModelRes readTreePage(ChainView chain, bool continues, ChainView position,
                        std::vector<std::uint8_t>& page, EvtSrv::internal::ByteOrder& order);
  /// The name of the part at `chain`, which its parent has; empty for the root.
  ModelRes nameOf(ChainView chain, std::string& name);

  ModelRes subscribe(ModelPart& part, ChainView chain, void* context, ModelPartIndex index);
  ModelRes unsubscribe(ModelPart& part, ChainView chain);

  ModelRes startWatch(const ClientWatches::Pointer& watch);
  /// The watch ends, whatever the result is.
  ModelRes stopWatch(ClientWatch& watch);

  /// `part` has been removed from the root's tree: its subscriptions end.
  void partDetached(const ModelPart& part);

  /// Notifies the parts that subscribed. If one of them closes or destroys this object, the
  /// remaining ones are not notified.
  void dispatch(const Update& update);

  /// Passes an event to the root's port. Drops updates of parts without a subscription.
  void eventReceived(std::uint16_t type, std::span<const std::uint8_t> payload,
                     EvtSrv::internal::ByteOrder order) override;
  void connectionLost() override;
  void connectionMade() override;
  void replyReceived(std::uint16_t code) override;

 private:
  using Deadline = EvtSrv::internal::Deadline;

  /// Makes a request that only reads, from the cache if possible.
  template <typename Cached, typename Decode>
  ModelRes read(const RequestView& request, ReplyCache::Data data, Cached cached, Decode decode);
  ModelRes findOrPrefetch(ChainView chain, ReplyCache::Data data, const ReplyCache::Part*& part);
  /// Makes one exchange, on a new connection if the present one is lost: all of it within the
  /// time of a request. A request that changes
  /// something is sent again only if nothing of it was written; `ModelRes_OutcomeUnknown` if the
  /// connection ended after that.
  ModelRes exchange(const RequestView& request, EvtSrv::internal::Reply& reply);
  /// The time that a request has, from now on.
  [[nodiscard]] Deadline timeOfRequest() const;
  /// Makes one exchange on the present connection.
  EvtSrv::EvtRes send(const RequestView& request, EvtSrv::internal::Reply& reply,
                      Deadline& deadline);
  EvtSrv::EvtRes send(const RequestView& request, EvtSrv::internal::Reply& reply);
  /// Connects again if necessary and renews the subscriptions.
  EvtSrv::EvtRes ensureReady(Deadline& deadline);
  EvtSrv::EvtRes renewSubscriptions(Deadline& deadline);
  /// Notes that a lost connection is restored if the renewal of the subscriptions is complete;
  /// returns whether it is.
  bool noteIfRestored();
  void deferWork();
  /// Passes the next event of the connection's life to the root, or continues the renewal.
  bool runDeferred() override;
  ModelRes cancel(ClientSubscriptions::Key key, Deadline& deadline);
  /// What a server that does not know descriptions has of one.
  ModelRes describeElements(ChainView chain, PartDescription& description);

  ModelRoot& root_;
  bool started_ = false;
  std::shared_ptr<ClientSubscriptions> subscriptions_ = std::make_shared<ClientSubscriptions>();
  std::shared_ptr<ClientWatches> watches_ = std::make_shared<ClientWatches>();
  ReplyCache cache_;
  bool prefetchEnabled_ = true;        ///< false if this connection's server has no usable page
  bool describeEnabled_ = true;        ///< false if this connection's server has no descriptions
  std::vector<std::uint8_t> payload_;  ///< of the request that is being sent
  EvtSrv::internal::PortClient port_;
  Renewal renewal_{port_, subscriptions_, watches_};
  ConnectionHistory history_;
};

}  // namespace ModelSrv::internal
