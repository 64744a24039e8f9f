#pragma once

#include <functional>
#include <string_view>

#include "servers/error.h"
#include "servers/tree_description.h"

namespace modelsrvd {

/// Returns the next piece of a text, valid until the next call; empty at the end.
using NextPiece = std::function<std::string_view()>;

/// Parses and checks the JSON description of a tree; modelsrvd(8) defines the format.
///
/// Reads no files and needs one piece of the text at a time. An error is one line,
/// whatever the text contains. It begins with the path of the wrong entry
/// ("/children/0/children/3/value: …") or, if the text is not JSON, with "line 3,
/// column 17: …". Errors are unknown and duplicate keys, wrong types, values out of
/// range, duplicate ids, names and texts above the platform's limits, and entries
/// deeper than `ModelDepth_Max`. The use of stack memory does not grow with the depth.
[[nodiscard]] Result<TreeDescription> parseTreeDescription(const NextPiece& next);
[[nodiscard]] Result<TreeDescription> parseTreeDescription(std::string_view text);

}  // namespace modelsrvd
