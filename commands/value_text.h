#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace treescope {

/// The text of a value and its path: the line that `get` prints and the command that
/// `to` saves. For any thread. Values and names may hold any bytes.

/// The path of `names`, with "[indexText]" after the last name if both are given; one
/// to four spaces up to the next multiple of four columns; the value, up to its first
/// zero byte, in square brackets. All as it is shown (term/shown_text.h), with line feeds
/// replaced by spaces.
[[nodiscard]] std::string valueLine(std::vector<std::string> names, const std::string& indexText,
                                    const std::string& value);

// A saved command is the command that stores a value: "set 42 /drive/speed". A server
// must not be able to add commands to the file, so each ";", line feed and other byte
// below 32, and each byte 127, becomes a space. Such a value does not read back, nor does
// one with a space and a double quote. Each function appends to `line`.

/// The command up to the path, with a space at the end: `str` and the value in double
/// quotes if the value is empty or holds a space then, else `set` and the value.
void appendSavedCommand(std::string& line, const std::string& value);

/// The path of a part: `appendPath` (shell/paths.h).
void appendSavedPath(std::string& line, const std::vector<std::string>& names);

/// The path of an element: `appendSavedPath` with "[element]" after the
/// last name; nothing without names.
void appendSavedElementPath(std::string& line, const std::vector<std::string>& names,
                            std::uint16_t element);

}  // namespace treescope
