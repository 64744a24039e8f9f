#pragma once

#include <utility>
#include <vector>

#include "modelsrv/model_root.h"

namespace modelsrv_tests {

/// Answers for any part, as a client's only part may: each answer eats a level of
/// the path that was set for the request. Keeps what it was told of updates.
class ProxyPart : public ModelSrv::ModelPart {
 public:
  struct Told {
    void* context;
    unsigned short index;
    bool operator==(const Told&) const = default;
  };

  explicit ProxyPart(ModelSrv::ModelRoot& root) : root_(root) {}

  /// Points at a part for the next request.
  ProxyPart& at(std::vector<ModelSrv::ModelPartId> chain) {
    path_ = std::move(chain);
    return *this;
  }

  ModelSrv::ModelPartId getId() override {
    ++idsAsked;
    if (path_.empty()) {
      return 0;
    }
    const ModelSrv::ModelPartId id = path_.back();
    path_.pop_back();
    return id;
  }

  ModelPart* getParentNode() override {
    ++parentsAsked;
    return path_.empty() ? static_cast<ModelPart*>(&root_) : this;
  }

  ModelSrv::ModelRes update(void* context, unsigned short index) override {
    told.push_back({context, index});
    return ModelSrv::ModelRes_Success;
  }

  int idsAsked = 0;
  int parentsAsked = 0;
  std::vector<Told> told;

 private:
  ModelSrv::ModelRoot& root_;
  std::vector<ModelSrv::ModelPartId> path_;
};

}  // namespace modelsrv_tests
