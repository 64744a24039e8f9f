#pragma once

#include <functional>
#include <string_view>

#include "servers/error.h"
#include "servers/tree_description.h"

namespace modelsrvd {

/// Gives the pieces of a text one after the other, each of which lives until the
/// next call; an empty one is the end.
using NextPiece = std::function<std::string_view()>;

/// Reads a description of a tree from its JSON text and checks it.
///
/// Bytes in, description out: no file is touched, and no more of the text is needed
/// at a time than a piece. A error begins with the path
/// of what is wrong ("/children/0/children/3/value: …") or, where the text is no
/// JSON, with "line 3, column 17: …", and is one line whatever the text holds.
/// Refused are unknown and doubled keys, wrong types, values out of range, doubled
/// ids, names and texts above the platform's limits, and entries that lie deeper
/// than `ModelDepth_Max`. The stack's use does not grow with the text's depth.
[[nodiscard]] Result<TreeDescription> parseTreeDescription(const NextPiece& next);
[[nodiscard]] Result<TreeDescription> parseTreeDescription(std::string_view text);

}  // namespace modelsrvd
