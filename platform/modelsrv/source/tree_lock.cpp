#include "modelsrv/source/tree_lock.h"

#include "evtsrv/event_port_manager.h"

namespace ModelSrv::internal {

TreeLock::TreeLock(const ModelPart& part) {
  while (EvtSrv::EventPortManager* manager = part.treeManager_.load(std::memory_order_acquire)) {
    manager->clientMutex.lock();
    // The manager only changes under its mutex: what is seen now stays.
    if (part.treeManager_.load(std::memory_order_relaxed) == manager) {
      mutex_ = &manager->clientMutex;
      return;
    }
    manager->clientMutex.unlock();
  }
}

TreeLock::~TreeLock() {
  if (mutex_ != nullptr) {
    mutex_->unlock();
  }
}

}  // namespace ModelSrv::internal
