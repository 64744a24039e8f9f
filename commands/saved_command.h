#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace treescope {

/// How a value is written as the command that stores it: "set 42 /drive/speed".
/// Pure; values and names may hold any bytes and are written as they are, so a
/// line feed, or a double quote in a text with blanks, does not read back.

// Each appends to `line`.

/// The command up to the path, ending in a blank: `set` and the value, or `str` and
/// the value in double quotes where it holds a blank or is empty.
void appendSavedCommand(std::string& line, const std::string& value);

/// The path of `names` (shell/paths.h) and "[element]"; nothing for an empty list.
void appendSavedElementPath(std::string& line, const std::vector<std::string>& names,
                            std::uint16_t element);

}  // namespace treescope
