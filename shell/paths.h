#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Paths in the tree: lists of components, outermost first, and their text. ".."
/// is the parent, nothing else is special. Any thread may call.

namespace treescope {

/// Goes from `place` where `path`, as it was typed, leads. "/" at its beginning, and
/// any "/" that follows another, starts from the top.
void followPath(std::string_view path, std::vector<std::string>& place);

/// Replaces `path`, as it was typed, by the text of the path it leads to from
/// `base`: "/" before each component, empty at the top. "/" at the beginning,
/// and any "/" that follows another, starts from the top.
void resolvePath(std::string& path, std::vector<std::string> base);

/// The text of a list of components: "/" before each; empty for an empty list.
[[nodiscard]] std::string joinPath(const std::vector<std::string>& components);

}  // namespace treescope
