#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "evtsrv/source/port_server.h"
#include "modelsrv/source/cache/cache_invalidator.h"
#include "modelsrv/source/cache/prefetch_writer.h"
#include "modelsrv/source/requests.h"
#include "modelsrv/source/session_subscriptions.h"

namespace ModelSrv::internal {

/// What the sessions of one served tree share, so that an idle one holds little
/// and a request needs no fresh memory.
struct SessionShare {
  explicit SessionShare(ModelRoot& servedRoot);

  ModelRoot& root;
  Request request;
  std::string text;
  PrefetchWriter prefetch;
  CacheInvalidator invalidator;
};

/// Answers one client's requests from the tree and keeps what it subscribed. Runs
/// with the client mutex held.
class TreeSession final : public EvtSrv::internal::ServerSession {
 public:
  /// `connection` outlives the session. The service may not: a session that is
  /// in the middle of a call ends after it.
  TreeSession(std::shared_ptr<SessionShare> share, EvtSrv::internal::ServerConnection& connection);

  std::uint16_t handle(std::uint16_t operation, EvtSrv::internal::PayloadReader& request,
                       std::vector<std::uint8_t>& reply) override;
  bool takeEvent(std::uint16_t& type, std::vector<std::uint8_t>& payload) override;

 private:
  ModelRes answer(std::uint16_t operation, EvtSrv::internal::PayloadReader& payload,
                  std::vector<std::uint8_t>& reply);
  ModelRes save(const ModelPart& part, ModelPartIndex index, std::vector<std::uint8_t>& reply);
  ModelRes prefetch(ModelPart& part, unsigned parts, std::vector<std::uint8_t>& reply);
  ModelRes subscribe(ModelPart& part, ModelPartIndex index);

  std::shared_ptr<SessionShare> share_;
  SessionSubscriptions subscriptions_;
};

}  // namespace ModelSrv::internal
