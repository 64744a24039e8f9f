#pragma once

#include <string>
#include <vector>

namespace treescope {

/// The line in which a value is shown: the path of `names`, with "[indexText]"
/// behind the last name where both are there; one to four blanks up to the next
/// multiple of four columns; the value in square brackets. Every newline in it is
/// replaced by a blank. Pure.
[[nodiscard]] std::string valueLine(std::vector<std::string> names, const std::string& indexText,
                                    const std::string& value);

}  // namespace treescope
