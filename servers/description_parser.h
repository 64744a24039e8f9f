#pragma once

#include <string_view>

#include "servers/failure.h"
#include "servers/tree_description.h"

namespace modelsrvd {

/// Reads a description of a tree from its JSON text and checks it.
///
/// Bytes in, description out: no file is touched. A failure begins with the path
/// of what is wrong ("/children/0/children/3/value: …") or, where the text is no
/// JSON, with "line 3, column 17: …", and is one line whatever the text holds.
/// Refused are unknown and doubled keys, wrong types, values out of range, doubled
/// ids, names and texts above the platform's limits, and entries that lie deeper
/// than `ModelDepth_Max`. The stack's use does not grow with the text's depth.
[[nodiscard]] Outcome<TreeDescription> parseTreeDescription(std::string_view text);

}  // namespace modelsrvd
