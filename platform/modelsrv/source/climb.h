#pragma once

#include <vector>

#include "modelsrv/model_part.h"

namespace ModelSrv::internal {

/// Finds out what `part` stands for: asks it and what it names as its parents for
/// their ids, each object exactly once per level, until a root is met. `chain`
/// then holds the ids from that root down. `ModelRes_NoSuchPart` where the way
/// ends before a root, `ModelRes_BadArgument` where it is longer than
/// `ModelDepth_Max`.
ModelRes climb(ModelPart& part, std::vector<ModelPartId>& chain, ModelRoot*& root);

}  // namespace ModelSrv::internal
