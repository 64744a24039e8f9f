#pragma once

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_part.h"

namespace ModelSrv::internal {

/// Locks the client mutex that guards a part, for its own lifetime. Locks nothing if the part
/// is not in the tree of a root. Safe while other threads move the part to another tree.
class TreeLock {
 public:
  explicit TreeLock(const ModelPart& part) {
    while (EvtSrv::EventPortManager* manager = part.treeManager_.load(std::memory_order_acquire)) {
      manager->clientMutex.lock();
      // The manager changes with its mutex held only, so this is final.
      if (part.treeManager_.load(std::memory_order_relaxed) == manager) {
        mutex_ = &manager->clientMutex;
        return;
      }
      manager->clientMutex.unlock();
    }
  }
  ~TreeLock() {
    if (mutex_ != nullptr) {
      mutex_->unlock();
    }
  }
  TreeLock(const TreeLock&) = delete;
  TreeLock& operator=(const TreeLock&) = delete;

 private:
  KSTD::KThreadMutex* mutex_ = nullptr;
};

}  // namespace ModelSrv::internal
