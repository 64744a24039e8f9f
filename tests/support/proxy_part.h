#pragma once

#include <utility>
#include <vector>

#include "modelsrv/model_root.h"

namespace test_support {

/// Represents any part of a server's tree, as the only part of a client may: each call of
/// `getId` consumes a level of the chain that was set for the request. Records the updates that
/// it receives.
class ProxyPart : public ModelSrv::ModelPart {
 public:
  struct Update {
    void* context;
    unsigned short index;
    bool operator==(const Update&) const = default;
  };

  explicit ProxyPart(ModelSrv::ModelRoot& root) : root_(root) {}
  ~ProxyPart() override { detach(); }
  ProxyPart(const ProxyPart&) = delete;
  ProxyPart& operator=(const ProxyPart&) = delete;

  /// Sets the part to represent in the next request.
  ProxyPart& at(std::vector<ModelSrv::ModelPartId> chain) {
    chain_ = std::move(chain);
    return *this;
  }

  ModelSrv::ModelPartId getId() override {
    ++idCalls;
    if (chain_.empty()) {
      return 0;
    }
    const ModelSrv::ModelPartId id = chain_.back();
    chain_.pop_back();
    return id;
  }

  ModelPart* getParentNode() override {
    ++parentCalls;
    return chain_.empty() ? static_cast<ModelPart*>(&root_) : this;
  }

  ModelSrv::ModelRes update(void* context, unsigned short index) override {
    updates.push_back({context, index});
    return ModelSrv::ModelRes_Success;
  }

  int idCalls = 0;
  int parentCalls = 0;
  std::vector<Update> updates;

 private:
  ModelSrv::ModelRoot& root_;
  std::vector<ModelSrv::ModelPartId> chain_;
};

}  // namespace test_support
