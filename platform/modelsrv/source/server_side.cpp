#include "modelsrv/source/server_side.h"

#include <utility>

#include "modelsrv/source/tree_lock.h"

namespace ModelSrv::internal {

ServerSide::ServerSide(ModelRoot& root)
    : share_(std::make_shared<SessionShare>(root)),
      port_(std::make_shared<EvtSrv::internal::PortServer>(root.manager()->core(), *this)) {}

ServerSide::~ServerSide() {
  // Cached replies must be invalid before any client can notice that the service has ended.
  share_->invalidator.close();
  share_->hooks->close();
  port_->close();
  share_->watches.registry->reportAllUnwatched();
}

EvtSrv::EvtRes ServerSide::start(const std::string& name, const ServerOptions& options) {
  TreeLock::assertHeld(share_->root);
  share_->stored = options.stored;
  share_->hooks->set(options);
  const EvtSrv::EvtRes result = port_->start(name, options.group);
  if (result == EvtSrv::EvtRes_Success) {
    share_->invalidator.open();
  }
  return result;
}

void ServerSide::beginStop() {
  TreeLock::assertHeld(share_->root);
  stopBegun_ = true;
  share_->invalidator.close();
  share_->hooks->close();
  port_->beginStop();
}

bool ServerSide::hasStopped() const {
  return stopBegun_ && !port_->stopping();
}

std::shared_ptr<EvtSrv::internal::DeferredReply> ServerSide::deferStore() {
  TreeLock::assertHeld(share_->root);
  TreeSession* const session = std::exchange(share_->deciding, nullptr);
  return session != nullptr ? session->deferReply() : nullptr;
}

std::unique_ptr<EvtSrv::internal::ServerSession> ServerSide::openSession(
    EvtSrv::internal::ServerConnection& connection) {
  TreeLock::assertHeld(share_->root);
  return std::make_unique<TreeSession>(share_, connection);
}

}  // namespace ModelSrv::internal
