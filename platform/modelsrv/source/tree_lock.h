#pragma once

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_part.h"

namespace ModelSrv::internal {

/// Locks the client mutex that guards a part, for its own lifetime. Locks nothing if the part
/// is not in the tree of a root. Safe while other threads move the part to another tree.
class TreeLock {
 public:
  explicit TreeLock(const ModelPart& part) KRV_NO_THREAD_SAFETY_ANALYSIS {
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
  ~TreeLock() KRV_NO_THREAD_SAFETY_ANALYSIS {
    if (mutex_ != nullptr) {
      mutex_->unlock();
    }
  }
  /// Aborts if `part` is in the tree of a root and the calling thread does not hold the client
  /// mutex that guards it. Checks nothing, and costs nothing, if `KRV_CHECKS_LOCKS` is 0.
  static void assertHeld([[maybe_unused]] const ModelPart& part) {
#if KRV_CHECKS_LOCKS
    if (const auto* manager = part.treeManager_.load(std::memory_order_relaxed)) {
      manager->clientMutex.assertHeld();
    }
#endif
  }

  TreeLock(const TreeLock&) = delete;
  TreeLock& operator=(const TreeLock&) = delete;

 private:
  KSTD::KThreadMutex* mutex_ = nullptr;
};

}  // namespace ModelSrv::internal
