#include "model/derived_model_part.h"

#include <utility>

namespace treescope {

namespace {

// The most memory of names that are cached for one subscription.
constexpr std::size_t longNames = 1024;

/// What a subscription takes here and in the library, about.
std::size_t memoryOf(const IdChain& chain) {
  constexpr std::size_t indices = 512;
  constexpr std::size_t copies = 4;
  return indices + longNames + copies * sizeof(std::uint16_t) * chain.size();
}

}  // namespace

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

bool DerivedModelPart::hasSpaceFor(const IdChain& chain) {
  assertHeld();
  return budget_.left() >= memoryOf(chain);
}

void DerivedModelPart::addSubscription(const IdChain& chain) {
  assertHeld();
  subscriptions_.add(chain);
  static_cast<void>(budget_.take(memoryOf(chain)));
  names_.erase(chain);
}

void DerivedModelPart::removeSubscription(const IdChain& chain) {
  assertHeld();
  if (subscriptions_.contains(chain)) {
    subscriptions_.removeFirst(chain);
    budget_.putBack(memoryOf(chain));
  }
  names_.erase(chain);
}

const std::vector<std::string>* DerivedModelPart::cachedNames(const IdChain& chain) const {
  assertHeld();
  const auto cached = names_.find(chain);
  return cached == names_.end() ? nullptr : &cached->second;
}

void DerivedModelPart::cacheNames(const IdChain& chain, const std::vector<std::string>& names) {
  assertHeld();
  std::size_t size = 0;
  for (const std::string& name : names) {
    size += sizeof(std::string) + name.size();
  }
  if (subscriptions_.containsOnce(chain) && size <= longNames) {
    names_[chain] = names;
  }
}

}  // namespace treescope
