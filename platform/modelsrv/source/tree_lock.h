#pragma once

#include "kstd/thread_mutex.h"
#include "modelsrv/model_part.h"

namespace ModelSrv::internal {

/// Holds the client mutex that guards a part, for as long as the object lives;
/// holds nothing for a part that hangs below no root. Safe against another thread
/// that hangs the part elsewhere meanwhile.
class TreeLock {
 public:
  explicit TreeLock(const ModelPart& part);
  ~TreeLock();
  TreeLock(const TreeLock&) = delete;
  TreeLock& operator=(const TreeLock&) = delete;

 private:
  KSTD::KThreadMutex* mutex_ = nullptr;
};

}  // namespace ModelSrv::internal
