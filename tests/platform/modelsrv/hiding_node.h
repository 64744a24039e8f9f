#pragma once

#include <mutex>
#include <string>
#include <utility>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_node.h"

namespace modelsrv_tests {

/// A node that can hide its children from clients.
class HidingNode final : public ModelSrv::ModelNode {
 public:
  HidingNode(ModelSrv::ModelPartId id, std::string name, EvtSrv::EventPortManager& manager)
      : ModelNode(id, std::move(name)), mutex_(manager.clientMutex) {}
  ~HidingNode() override { detach(); }

  void hide(bool hidden) {
    const std::lock_guard lock(mutex_);
    invalidate();
    isHidden_ = hidden;
  }

 protected:
  [[nodiscard]] bool isCacheable() const override { return true; }
  [[nodiscard]] ModelNode* asNode() override { return isHidden_ ? nullptr : this; }

 private:
  KSTD::KThreadMutex& mutex_;
  bool isHidden_ = false;
};

}  // namespace modelsrv_tests
