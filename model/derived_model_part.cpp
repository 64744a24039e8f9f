#include "model/derived_model_part.h"

#include <utility>

namespace treescope {

DerivedModelPart::DerivedModelPart(ModelSrv::ModelRoot* root, std::string serverName)
    : ModelPart(ModelSrv::ModelPartId_Void, {}, ModelSrv::ModelPartStatus_Void),
      root_(root),
      serverName_(std::move(serverName)) {}

DerivedModelPart::~DerivedModelPart() = default;

ModelSrv::ModelPartId DerivedModelPart::getId() {
  assertHeld();
  if (targetPath_.empty()) {
    return 0;
  }
  const ModelSrv::ModelPartId id = targetPath_.back();
  targetPath_.pop_back();
  return id;
}

ModelSrv::ModelPart* DerivedModelPart::getParentNode() {
  assertHeld();
  if (targetPath_.empty()) {
    return root_;
  }
  return this;
}

ModelSrv::ModelRes DerivedModelPart::update(void* /*context*/, unsigned short /*index*/) {
  return ModelSrv::ModelRes_DoNothing;
}

void DerivedModelPart::addSubscription(const IdChain& chain) {
  assertHeld();
  subscriptions_.add(chain);
  names_.erase(chain);
}

void DerivedModelPart::removeSubscription(const IdChain& chain) {
  assertHeld();
  subscriptions_.removeFirst(chain);
  names_.erase(chain);
}

const std::vector<std::string>* DerivedModelPart::cachedNames(const IdChain& chain) const {
  assertHeld();
  const auto cached = names_.find(chain);
  return cached == names_.end() ? nullptr : &cached->second;
}

void DerivedModelPart::cacheNames(const IdChain& chain, const std::vector<std::string>& names) {
  assertHeld();
  if (subscriptions_.containsOnce(chain)) {
    names_[chain] = names;
  }
}

}  // namespace treescope
