#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace treescope {

/// How a value is written as the command that stores it: "set 42 /drive/speed".
/// Pure; values and names may hold any bytes and are written as they are, so a
/// line feed, or a double quote in a text with blanks, does not read back.

/// The command up to the path, ending in a blank: `set` and the value, or `str` and
/// the value in double quotes where it holds a blank or is empty.
[[nodiscard]] std::string savedCommand(const std::string& value);

/// "/" in front of each name; empty where there is none.
[[nodiscard]] std::string savedPath(const std::vector<std::string>& names);

/// The same with "[element]" behind the last name; empty where there is none.
[[nodiscard]] std::string savedElementPath(const std::vector<std::string>& names,
                                           std::uint16_t element);

}  // namespace treescope
