#include "modelsrv/source/climb.h"

#include <algorithm>

#include "modelsrv/source/part_access.h"

namespace ModelSrv::internal {

ModelRes climb(ModelPart& part, std::vector<ModelPartId>& chain, ModelRoot*& root) {
  chain.clear();
  // Few are deeper: they take more room step by step.
  chain.reserve(16);
  ModelPart* at = &part;
  while ((root = PartAccess::asRoot(*at)) == nullptr) {
    if (chain.size() == ModelDepth_Max)
      return ModelRes_BadArgument;
    chain.push_back(at->getId());
    at = at->getParentNode();
    if (at == nullptr)
      return ModelRes_NoSuchPart;
  }
  std::reverse(chain.begin(), chain.end());
  return ModelRes_Success;
}

}  // namespace ModelSrv::internal
