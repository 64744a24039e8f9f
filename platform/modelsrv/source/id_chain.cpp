#include "modelsrv/source/id_chain.h"

#include <algorithm>

#include "modelsrv/source/part_access.h"

namespace ModelSrv::internal {

ResolvedChain::ResolvedChain(ModelPart& part) : result_(run(part)) {
  if (!many_.empty()) {
    std::reverse(many_.begin(), many_.end());
  }
}

ModelRes ResolvedChain::run(ModelPart& part) {
  ModelPart* at = &part;
  for (std::size_t depth = 0; (root_ = PartAccess::asRoot(*at)) == nullptr; ++depth) {
    if (depth == ModelDepth_Max) {
      return ModelRes_BadArgument;
    }
    const ModelPartId id = at->getId();
    if (first_ > 0) {
      few_[--first_] = id;
    } else {
      addToMany(id);
    }
    at = at->getParentNode();
    if (at == nullptr) {
      return ModelRes_NoSuchPart;
    }
  }
  return ModelRes_Success;
}

void ResolvedChain::addToMany(ModelPartId id) {
  if (many_.empty()) {
    many_.reserve(manyLevels);
    many_.assign(few_.rbegin(), few_.rend());
  }
  many_.push_back(id);
}

}  // namespace ModelSrv::internal
