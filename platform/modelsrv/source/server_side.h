#pragma once

#include <memory>
#include <string>

#include "evtsrv/source/port_server.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/tree_session.h"

namespace ModelSrv::internal {

/// The service of a root: its port and a session for each client. Guarded by the client mutex.
class ServerSide final : public EvtSrv::internal::ServedPort {
 public:
  explicit ServerSide(ModelRoot& root);
  ~ServerSide() override;

  EvtSrv::EvtRes start(const std::string& name, const ServerOptions& options);

  /// Begins a graceful shutdown: accepts no more clients, sends the connected ones the stopped
  /// event, and closes their connections when they have received what is pending.
  void beginStop();

  /// Whether a shutdown has finished.
  [[nodiscard]] bool hasStopped() const;
  [[nodiscard]] bool isStopping() const { return port_->stopping(); }

  std::unique_ptr<EvtSrv::internal::ServerSession> openSession(
      EvtSrv::internal::ServerConnection& connection) override;
  /// From now on clients cache nothing. The page is not opened again with the name, because that
  /// is to be done on the thread that began the service, and any thread may dispatch.
  void nameLost() override { share_->invalidator.close(); }

  /// Defers the reply to the store that is being decided about; null if there is none.
  [[nodiscard]] std::shared_ptr<EvtSrv::internal::DeferredReply> deferStore();

  [[nodiscard]] CacheInvalidator& invalidator() { return share_->invalidator; }

 private:
  const std::shared_ptr<SessionShare> share_;
  bool stopBegun_ = false;
  const std::shared_ptr<EvtSrv::internal::PortServer> port_;
};

}  // namespace ModelSrv::internal
