#pragma once

#include <vector>

#include "modelsrv/model_node.h"
#include "modelsrv/source/part_access.h"

namespace ModelSrv::internal {

/// Calls `visit(part)` for `top` and for everything below it, whatever the depth.
/// `visit` must not change the tree's shape.
template <typename Visit>
void forSubtree(ModelPart& top, Visit visit) {
  visit(top);
  const ModelNode* node = PartAccess::asNode(top);
  if (node == nullptr || node->children().empty())
    return;
  std::vector<ModelPart*> open(node->children());
  while (!open.empty()) {
    ModelPart& part = *open.back();
    open.pop_back();
    visit(part);
    if (const ModelNode* below = PartAccess::asNode(part))
      open.insert(open.end(), below->children().begin(), below->children().end());
  }
}

}  // namespace ModelSrv::internal
