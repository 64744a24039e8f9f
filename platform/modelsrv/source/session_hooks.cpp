#include "modelsrv/source/session_hooks.h"

#include <utility>

#include "evtsrv/source/manager_core.h"

namespace ModelSrv::internal {

void SessionHooks::set(const ServerOptions& options) {
  arrived_ = options.arrived;
  left_ = options.left;
}

/// The functions stay: one of them may be what ends the service.
void SessionHooks::close() {
  isOpen_ = false;
  leaveQueue();
}

void SessionHooks::sessionOpened(EvtSrv::internal::ServerConnection& connection) {
  ++clients_;
  if (isOpen_ && arrived_) {
    const auto keepAlive = shared_from_this();
    arrived_(SessionHold(manager_, connection.holdRequests()));
  }
}

void SessionHooks::sessionEnded() {
  --clients_;
  if (isOpen_ && left_) {
    EvtSrv::internal::ManagerCore& core = manager_.core();
    core.clientMutex().assertHeld();
    core.defer(*this);
  }
}

bool SessionHooks::runDeferred() {
  const auto keepAlive = shared_from_this();
  left_(clients_);
  return true;
}

}  // namespace ModelSrv::internal
