#include "modelsrv/source/id_chain.h"

#include <algorithm>

#include "modelsrv/source/part_access.h"

namespace ModelSrv::internal {

ResolvedChain::ResolvedChain(ModelPart& part) : result_(resolve(part)) {
  if (!long_.empty()) {
    std::reverse(long_.begin(), long_.end());
  }
}

ModelRes ResolvedChain::resolve(ModelPart& part) {
  ModelPart* at = &part;
  for (std::size_t depth = 0; (root_ = PartAccess::asRoot(*at)) == nullptr; ++depth) {
    if (depth == ModelDepth_Max) {
      return ModelRes_BadArgument;
    }
    const ModelPartId id = at->getId();
    if (shortBegin_ > 0) {
      short_[--shortBegin_] = id;
    } else {
      addToLong(id);
    }
    at = at->getParentNode();
    if (at == nullptr) {
      return ModelRes_NoSuchPart;
    }
  }
  return ModelRes_Success;
}

void ResolvedChain::addToLong(ModelPartId id) {
  if (long_.empty()) {
    long_.reserve(longInitialCapacity);
    long_.assign(short_.rbegin(), short_.rend());
  }
  long_.push_back(id);
}

}  // namespace ModelSrv::internal
