#pragma once

#include "commands/values_file.h"
#include "model/id_chain.h"
#include "model/tree_scope.h"

namespace treescope {

/// Writes into `file` one command for every value at and below `top`, depth first
/// and in the server's order: one for a part, one an element for an array; a node
/// without children counts as a part. Each is reported on standard output.
///
/// `top` holds the names that the written paths begin with, which may be fewer
/// than its ids. Runs on the thread of the command; the client mutex is taken for
/// each exchange with the server alone. A value that cannot be read is written as
/// an empty one. Any depth of tree.
void saveSubtree(TreeScope& scope, NamedChain top, ValuesFile& file);

}  // namespace treescope
