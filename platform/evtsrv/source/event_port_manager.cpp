#include "evtsrv/event_port_manager.h"

#include "evtsrv/source/manager_core.h"

namespace EvtSrv {

EventPortManager::EventPortManager(unsigned behaviour, bool reconnect)
    : core_(std::make_unique<internal::ManagerCore>(internal::posixSystem(), clientMutex,
                                                    reconnect)) {
  // No behaviour bit has an effect: this library never connects over a network.
  static_cast<void>(behaviour);
}

EventPortManager::~EventPortManager() = default;

EvtRes EventPortManager::receiveEvent(int milliseconds) {
  return core_->receive(milliseconds);
}

int EventPortManager::pollDescriptor() const {
  return core_->pollDescriptor();
}

EvtRes EventPortManager::finishActiveTerm(int milliseconds) {
  return core_->finishTerminations(milliseconds);
}

void EventPortManager::wake() noexcept {
  core_->wake();
}

bool EventPortManager::reconnects() const {
  return core_->reconnects();
}

}  // namespace EvtSrv
