#pragma once

#include <cstddef>
#include <vector>

#include "modelsrv/model_node.h"
#include "modelsrv/source/part_access.h"

namespace ModelSrv::internal {

/// Everything below `top`, whatever the depth; allocates nothing where there is nothing.
inline std::vector<ModelPart*> partsBelow(const ModelPart& top) {
  std::vector<ModelPart*> parts(PartAccess::below(top));
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const std::vector<ModelPart*>& below = PartAccess::below(*parts[i]);
    parts.insert(parts.end(), below.begin(), below.end());
  }
  return parts;
}

}  // namespace ModelSrv::internal
