#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// The texts that listings consist of. Any thread. May throw std::bad_alloc.

namespace treescope {

/// One level of a tree's indentation.
inline constexpr std::string_view treeIndentation = "    ";
/// Before each name of a tree.
inline constexpr std::string_view treeBranch = "+-- ";

/// `count` spaces; empty if `count` is less than 1.
[[nodiscard]] std::string blanks(std::ptrdiff_t count);

/// `name` up to its first zero byte, or "notfound" if there is no name. The result
/// points into `name`.
[[nodiscard]] std::string_view nameText(const std::optional<std::string>& name);

/// Appends that name to `line` as it is shown (term/shown_text.h), and the number of bytes
/// that this appends.
void appendNameText(std::string& line, const std::optional<std::string>& name);
[[nodiscard]] std::size_t shownNameSize(const std::optional<std::string>& name);

/// `value` up to its first zero byte, as it is shown, in square brackets, with each line
/// feed replaced by a space; "[nodata]" if there is no value.
[[nodiscard]] std::string valueText(const std::optional<std::string>& value);

/// Appends the result of `valueText` to `line`.
void appendValueText(std::string& line, const std::optional<std::string>& value);

}  // namespace treescope
