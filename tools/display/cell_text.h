#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace treectl {

/// The size of a terminal, in characters.
struct Size {
  std::size_t rows = 24;
  std::size_t columns = 80;
  bool operator==(const Size&) const = default;
};

/// What a terminal can show.
struct Style {
  bool utf8 = false;  ///< characters that are not ASCII
  bool colored = false;
};

/// A line for the screen: its bytes, and how many columns they take. Without a line feed. What it
/// sets of colours it resets.
struct ScreenLine {
  std::string text;
  std::size_t columns = 0;
  bool operator==(const ScreenLine&) const = default;
};

/// How many columns `text` takes in the locale of the program. Control characters, and bytes that
/// are no characters, are shown as "?".
[[nodiscard]] std::size_t columnsOf(std::string_view text);

/// Appends as much of `text` as fits into `columns`. What is cut ends with "…", or "~" without
/// UTF-8.
void appendCut(ScreenLine& line, std::string_view text, std::size_t columns, const Style& style);

/// The same, and spaces up to `columns`.
void appendPadded(ScreenLine& line, std::string_view text, std::size_t columns, const Style& style);

/// Appends characters of one column each, such as those of a frame.
void appendPlainCells(ScreenLine& line, std::string_view text, std::size_t columns);

/// Begins and ends a colour or an attribute, such as "1;31", if the style has colours.
void appendLook(ScreenLine& line, std::string_view look, const Style& style);
void endLook(ScreenLine& line, const Style& style);

}  // namespace treectl
