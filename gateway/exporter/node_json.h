#pragma once

#include <string>

#include "gateway/exporter/tree_index.h"
#include "gateway/exporter/value_table.h"

namespace modelgate {

/// The values of a node's children as a flat JSON object: numbers as numbers, bools as bools, all
/// others as texts; null for one that cannot be read or that no message would hold, and for a
/// number that JSON does not have. A child without a name is "#ID", as in addresses; an array has a
/// member for each element: "gains_p", or "gains_0" without names of elements. Of several members
/// with one name the first one is there. Bytes that are no UTF-8 are U+FFFD. Of a part that is no
/// node: {"value": …}.
[[nodiscard]] std::string nodeJson(const TreeIndex& index, const ValueTable& values,
                                   Position position);

}  // namespace modelgate
