#pragma once

#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "evtsrv/source/port_client.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/client_subscriptions.h"
#include "modelsrv/source/id_chain.h"
#include "modelsrv/source/replies.h"
#include "modelsrv/source/cache/reply_cache.h"
#include "modelsrv/source/requests.h"

namespace ModelSrv::internal {

/// A root's connection to the server whose tree it stands for: makes requests,
/// connects again where the connection was lost, keeps what was subscribed, and
/// hands events to the root's port. Questions are answered from a prefetch of the
/// tree as long as the server lets it count. Everything runs with the client mutex held.
class ClientSide final : public EvtSrv::internal::EventSink {
 public:
  explicit ClientSide(ModelRoot& root);

  /// Connects to port `name`; an earlier connection and its subscriptions end.
  ModelRes connect(const std::string& name);

  /// Ends the connection and its subscriptions. Nothing connects again.
  void close();

  // Requests; the chain says about which part. Outputs are replaced on success
  // alone.

  ModelRes childIds(ChainView chain, std::vector<ModelPartId>& ids);
  ModelRes childNames(ChainView chain, std::vector<std::string>& names);
  ModelRes elementSum(ChainView chain, std::uint16_t& sum);
  ModelRes elementNames(ChainView chain, std::vector<std::string>& names);
  ModelRes save(ChainView chain, std::ostringstream& text, ModelPartIndex index);
  ModelRes load(ChainView chain, std::string_view text, bool flag, ModelPartIndex index);

  ModelRes subscribe(ModelPart& part, ChainView chain, void* context, ModelPartIndex index);
  ModelRes unsubscribe(ModelPart& part, ChainView chain);

  /// `part` is taken out of the root's tree: its subscriptions end.
  void partDetached(const ModelPart& part);

  /// Tells the parts that subscribed of an update. One of them may close or
  /// destroy this: the others are then not told.
  void tell(const Update& update);

  /// Updates of what is not subscribed any more stop here.
  void eventReceived(std::uint16_t type, std::span<const std::uint8_t> payload,
                     EvtSrv::internal::ByteOrder order) override;

 private:
  ModelRes request(const RequestView& request, EvtSrv::internal::Reply& reply);
  EvtSrv::EvtRes send(const RequestView& request, EvtSrv::internal::Reply& reply);
  /// Has a connection that the subscriptions are known on, as far as may be.
  EvtSrv::EvtRes makeReady();
  EvtSrv::EvtRes renewSubscriptions();
  ModelRes cancel(ClientSubscriptions::Key key);

  /// Has a prefetch that tells of the part at `chain`: `part` is then what it says of
  /// what is wanted, or null where the server is to be asked for the one thing.
  ModelRes look(ChainView chain, ReplyCache::Wanted wanted, const ReplyCache::Part*& part);
  /// Asks for one thing about the part at `chain`.
  ModelRes ask(Operation operation, ChainView chain, EvtSrv::internal::Reply& reply,
               ModelPartIndex index = ModelPartIndex_All);

  ModelRoot& root_;
  bool started_ = false;
  std::shared_ptr<ClientSubscriptions> subscriptions_ = std::make_shared<ClientSubscriptions>();
  ReplyCache cache_;
  bool prefetchEnabled_ = true;        ///< until this connection's server shows no page
  std::vector<std::uint8_t> payload_;  ///< of the request that is being sent
  EvtSrv::internal::PortClient port_;
};

}  // namespace ModelSrv::internal
