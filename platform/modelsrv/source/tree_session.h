#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "evtsrv/source/server_session.h"
#include "modelsrv/source/cache/cache_invalidator.h"
#include "modelsrv/source/cache/prefetch_writer.h"
#include "modelsrv/source/requests.h"
#include "modelsrv/source/session_hooks.h"
#include "modelsrv/source/session_subscriptions.h"
#include "modelsrv/source/session_watches.h"
#include "modelsrv/source/tree_pages.h"

namespace ModelSrv::internal {

class TreeSession;

/// What the sessions of one served tree share: buffers, so that an idle session holds little
/// memory and a request allocates none, and the cache invalidator. Guarded by the client mutex.
struct SessionShare {
  explicit SessionShare(ModelRoot& servedRoot);

  ModelRoot& root;
  Request request;
  std::string text;
  std::string reason;  ///< of the request that is being served, if it is refused with one
  PrefetchWriter prefetch;
  TreePageWriter pages;
  CacheInvalidator invalidator;
  WatchShare watches;
  std::function<void(ModelPart& part)> stored;  ///< see `ServerOptions`
  const std::shared_ptr<SessionHooks> hooks;
  /// The session whose store the program decides about; null if there is none, or its reply is
  /// deferred.
  TreeSession* deciding = nullptr;
};

/// Serves the requests of one client from the tree, and keeps its subscriptions. Guarded by the
/// client mutex.
class TreeSession final : public EvtSrv::internal::ServerSession {
 public:
  /// `connection` must outlive the session. The service (`ServerSide`) need not: a session in
  /// the middle of a call ends after it.
  TreeSession(std::shared_ptr<SessionShare> share, EvtSrv::internal::ServerConnection& connection);
  ~TreeSession() override;
  TreeSession(const TreeSession&) = delete;
  TreeSession& operator=(const TreeSession&) = delete;

  void opened() override;
  std::uint16_t handle(std::uint16_t operation, EvtSrv::internal::PayloadReader& request,
                       std::vector<std::uint8_t>& reply) override;
  [[nodiscard]] bool isShort(std::uint16_t operation) const override;
  void beginEvents(bool inDispatch) override { watches_.beginEvents(inDispatch); }
  bool takeEvent(std::uint16_t& type, std::vector<std::uint8_t>& payload) override;
  [[nodiscard]] bool eventsPaused() const override { return watches_.isPaused(); }
  void beginDrain() override { watches_.endPeriods(); }
  /// Defers the reply to the request that is being served.
  [[nodiscard]] std::shared_ptr<EvtSrv::internal::DeferredReply> deferReply() {
    return connection_.deferReply();
  }
  [[nodiscard]] std::uint16_t limitReached() const override { return ModelRes_LimitReached; }
  bool release() override {
    const bool released = subscriptions_.release();
    return watches_.release() && released;
  }

 private:
  using Bytes = std::vector<std::uint8_t>;
  using Handler = ModelRes (TreeSession::*)(ModelPart& part, const Request& request, Bytes& reply);

  ModelRes serve(std::uint16_t operation, EvtSrv::internal::PayloadReader& payload, Bytes& reply);
  ModelRes serveAbsent(const Request& request);

  // The handlers, one for each of `MODELSRV_OPERATIONS`. Each appends the payload of the reply;
  // unless the result is success, `handle` replaces it with the `reason` in the share. A call into
  // a part may dispatch further requests, which replace the content of `request` and of the
  // share: read it before, and set the reason after.
  ModelRes childIds(ModelPart& part, const Request& request, Bytes& reply);
  ModelRes childNames(ModelPart& part, const Request& request, Bytes& reply);
  ModelRes elementSum(ModelPart& part, const Request& request, Bytes& reply);
  ModelRes elementNames(ModelPart& part, const Request& request, Bytes& reply);
  ModelRes save(ModelPart& part, const Request& request, Bytes& reply);
  ModelRes load(ModelPart& part, const Request& request, Bytes& reply);
  ModelRes subscribe(ModelPart& part, const Request& request, Bytes& reply);
  ModelRes unsubscribe(ModelPart& part, const Request& request, Bytes& reply);
  ModelRes prefetch(ModelPart& part, const Request& request, Bytes& reply);
  ModelRes describe(ModelPart& part, const Request& request, Bytes& reply);
  ModelRes renew(ModelPart& part, const Request& request, Bytes& reply);
  ModelRes watch(ModelPart& part, const Request& request, Bytes& reply);
  ModelRes unwatch(ModelPart& part, const Request& request, Bytes& reply);
  ModelRes readTree(ModelPart& part, const Request& request, Bytes& reply);
  bool takeUpdate(std::uint16_t& type, std::vector<std::uint8_t>& payload);

  std::shared_ptr<SessionShare> share_;
  EvtSrv::internal::ServerConnection& connection_;
  SessionSubscriptions subscriptions_;
  SessionWatches watches_;
  bool isCounted_ = false;    ///< by the hooks
  bool watchIsNext_ = false;  ///< updates and events of watches take turns
};

}  // namespace ModelSrv::internal
