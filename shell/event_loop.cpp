#include "evtsrv/event_port_manager.h"
#include "shell/scope_base.h"

namespace treescope {

namespace {

constexpr int turnMilliseconds = 100;

}  // namespace

int ScopeBase::step() {
  // A turn without an event is a turn.
  static_cast<void>(eventPortManager_->receiveEvent(turnMilliseconds));
  static_cast<void>(eventPortManager_->finishActiveTerm(turnMilliseconds));
  return 1;
}

}  // namespace treescope
