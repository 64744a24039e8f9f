#pragma once

#include <cstddef>
#include <vector>

#include "modelsrv/model_node.h"
#include "modelsrv/source/part_access.h"

namespace ModelSrv::internal {

/// Calls `visit(part)` for `top` and for everything below it, whatever the depth; for
/// all or, where it throws for want of memory, for none. `visit` must not change the
/// tree's shape.
template <typename Visit>
void forSubtree(ModelPart& top, Visit visit) {
  std::vector<ModelPart*> parts(PartAccess::below(top));
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const std::vector<ModelPart*>& below = PartAccess::below(*parts[i]);
    parts.insert(parts.end(), below.begin(), below.end());
  }
  visit(top);
  for (ModelPart* const part : parts)
    visit(*part);
}

}  // namespace ModelSrv::internal
