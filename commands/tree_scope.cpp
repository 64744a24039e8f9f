#include "commands/tree_scope.h"

#include "evtsrv/event_port_manager.h"
#include "model/update_display.h"

namespace treescope {

TreeScope::TreeScope(EvtSrv::EventPortManager* manager, int mode)
    : ScopeBase(manager, mode), ModelClient(manager) {}

TreeScope::~TreeScope() {
  freeTree(listingTree_);
  if (connected()) {
    static_cast<void>(disconnectServer());
  }
}

unsigned TreeScope::receiveModelEvent(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                                      EvtSrv::MemoryHolder* reply) {
  eventPortManager_->clientMutex.assertHeld();
  if (type != EvtTyp_Model_Update) {
    if (connected()) {
      // The connection may lead to another server from now on.
      currentPart()->invalidateNames();
    }
    return receiveMain(sender, type, data, reply);
  }
  // After `disconnectServer` the library keeps the connection, and the subscriptions
  // that were not cancelled.
  if (connected()) {
    printUpdate(*this, decodeUpdate(*data), printer_);
  }
  return EvtSrv::EvtRes_Success;
}

std::string TreeScope::expandPath(const char* path) const {
  std::string text = path == nullptr ? "" : path;
  if (connected() && text.starts_with('~')) {
    text[0] = '/';
  }
  return text;
}

}  // namespace treescope
