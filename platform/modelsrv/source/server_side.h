#pragma once

#include <memory>
#include <string>

#include "evtsrv/source/port_server.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/tree_session.h"

namespace ModelSrv::internal {

/// A root's service: its port and a session for each client. Everything runs with
/// the client mutex held.
class ServerSide final : public EvtSrv::internal::ServedPort {
 public:
  explicit ServerSide(ModelRoot& root);
  ~ServerSide() override;

  EvtSrv::EvtRes start(const std::string& name, const ServerOptions& options);

  /// Takes no further client; those that are there are told and end.
  void beginStop();

  /// Whether a stop has begun and ended.
  [[nodiscard]] bool hasStopped() const;
  [[nodiscard]] bool isStopping() const { return port_.stopping(); }

  std::unique_ptr<EvtSrv::internal::ServerSession> openSession(
      EvtSrv::internal::ServerConnection& connection) override;

  /// The value of a part that was told of with that stamp is about to change.
  void invalidateValue(std::uint32_t stamp);
  /// Anything else of such a part is.
  void invalidate(std::uint32_t stamp);
  /// The tree is about to get another shape.
  void invalidateAll();

 private:
  const std::shared_ptr<SessionShare> share_;
  bool stopBegun_ = false;
  EvtSrv::internal::PortServer port_;  ///< last: its end ends the sessions
};

}  // namespace ModelSrv::internal
