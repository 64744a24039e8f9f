#pragma once

#include <vector>

#include "modelsrv/model_node.h"
#include "servers/tree_description.h"

namespace modelsrvd {

/// Gives the children of a node that is described anew the ids of its present children, so that
/// a part which stays keeps its id when entries before it come or go.
///
/// `entries` are the entries of the children in their order, with different ids. The id of one
/// that the file does not state becomes that of the present child with the same name (if there
/// are several, in their order), unless another entry states it. If there is no such child, the
/// entry keeps its default id, or gets the next free one if that is taken.
void keepIds(const std::vector<Entry*>& entries, const ModelSrv::ModelNode& present);

}  // namespace modelsrvd
