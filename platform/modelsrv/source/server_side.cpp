#include "modelsrv/source/server_side.h"

namespace ModelSrv::internal {

ServerSide::ServerSide(ModelRoot& root)
    : share_(std::make_shared<SessionShare>(SessionShare{root})),
      port_(root.manager()->core(), *this) {}

EvtSrv::EvtRes ServerSide::start(const std::string& name, const ServerOptions& options) {
  return port_.start(name, options.group);
}

void ServerSide::beginStop() {
  stopBegun_ = true;
  port_.beginStop();
}

bool ServerSide::hasStopped() const {
  return stopBegun_ && !port_.stopping();
}

std::unique_ptr<EvtSrv::internal::ServerSession> ServerSide::openSession(
    EvtSrv::internal::ServerConnection& connection) {
  return std::make_unique<TreeSession>(share_, connection);
}

}  // namespace ModelSrv::internal
