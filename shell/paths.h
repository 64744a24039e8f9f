#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Paths in the tree: lists of components, outermost first, and their text. ".."
/// is the parent; no other name is special. Every path of the program is joined
/// here. Pure functions; any thread may call them.

namespace treescope {

/// Appends "/" and `component` to `text`.
void appendComponent(std::string& text, std::string_view component);

/// Appends "/" and the component to `text`, for each of `components`; nothing for
/// an empty list.
void appendPath(std::string& text, const std::vector<std::string>& components);

/// The path as it is printed: "/" before each component, "/" alone for an empty
/// list.
[[nodiscard]] std::string pathText(const std::vector<std::string>& components);

/// Applies the path `typed` to the location `path`. A "/" at the beginning of
/// `typed`, and any "/" that follows another, returns to the top; ".." at the top
/// stays there.
void followPath(std::string_view typed, std::vector<std::string>& path);

/// Replaces the typed `path` by the text of the path that `followPath` reaches from
/// `base`: "/" before each component, empty at the top.
void resolvePath(std::string& path, std::vector<std::string> base);

}  // namespace treescope
