#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// The texts that listings are made of. Any thread; nothing can fail but memory.

namespace treescope {

/// One level of a tree's indentation.
inline constexpr std::string_view treeIndentation = "    ";
/// Before each name of a tree.
inline constexpr std::string_view treeBranch = "+-- ";

/// `count` blanks; empty where `count` is below 1.
[[nodiscard]] std::string blanks(std::ptrdiff_t count);

/// `name` up to its first zero byte, or "notfound" where there is none. The result
/// points into `name`.
[[nodiscard]] std::string_view nameText(const std::optional<std::string>& name);

/// `value`, up to its first zero byte, in square brackets, with a blank in place of
/// each line feed; "[nodata]" where there is none.
[[nodiscard]] std::string valueText(const std::optional<std::string>& value);

/// Appends what `valueText` gives to `line`.
void appendValueText(std::string& line, const std::optional<std::string>& value);

}  // namespace treescope
