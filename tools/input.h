#pragma once

#include <cstddef>
#include <string>

namespace treectl {

/// Appends all that `descriptor` has to `text`, at most `maxBytes` and a block. 0, or the number of
/// the error: EINTR if `StopSignals` has received one.
[[nodiscard]] int readAll(int descriptor, std::string& text, std::size_t maxBytes);

/// Appends the content of a file to `text`; "-" is standard input. 0, or the number of the error.
[[nodiscard]] int readInputFile(const std::string& path, std::string& text);

}  // namespace treectl
