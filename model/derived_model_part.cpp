#include "model/derived_model_part.h"

#include <algorithm>
#include <utility>

namespace treescope {

DerivedModelPart::DerivedModelPart(ModelSrv::ModelRoot* root, std::string serverName)
    : ModelPart(ModelSrv::ModelPartId_Void, {}, ModelSrv::ModelPartStatus_Void),
      root_(root),
      serverName_(std::move(serverName)) {}

DerivedModelPart::~DerivedModelPart() = default;

ModelSrv::ModelPartId DerivedModelPart::getId() {
  if (targetPath_.empty()) {
    return 0;
  }
  const ModelSrv::ModelPartId id = targetPath_.back();
  targetPath_.pop_back();
  return id;
}

ModelSrv::ModelPart* DerivedModelPart::getParentNode() {
  if (targetPath_.empty()) {
    return root_;
  }
  return this;
}

ModelSrv::ModelRes DerivedModelPart::update(void* /*context*/, unsigned short /*index*/) {
  return ModelSrv::ModelRes_DoNothing;
}

void DerivedModelPart::removeSubscription(const IdChain& chain) {
  const auto found = std::find(subscriptions_.begin(), subscriptions_.end(), chain);
  if (found != subscriptions_.end()) {
    subscriptions_.erase(found);
  }
}

}  // namespace treescope
