#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace treescope {

/// The text of a value and its path: the line that `get` prints and the command that
/// `to` saves. Pure functions for any thread. Values and names may hold any bytes.

/// The path of `names`, with "[indexText]" after the last name if both are given; one
/// to four spaces up to the next multiple of four columns; the value in square
/// brackets. Line feeds are replaced by spaces.
[[nodiscard]] std::string valueLine(std::vector<std::string> names, const std::string& indexText,
                                    const std::string& value);

// A saved command is the command that stores a value: "set 42 /drive/speed". Bytes
// are written unchanged, so a value with a line feed, or with a space and a double
// quote, does not read back. Each function appends to `line`.

/// The command up to the path, with a space at the end: `str` and the value in double
/// quotes if the value is empty or holds a space, else `set` and the value.
void appendSavedCommand(std::string& line, const std::string& value);

/// The path of an element: `appendPath` (shell/paths.h) with "[element]" after the
/// last name; nothing without names.
void appendSavedElementPath(std::string& line, const std::vector<std::string>& names,
                            std::uint16_t element);

}  // namespace treescope
