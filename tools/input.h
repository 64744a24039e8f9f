#pragma once

#include <cstddef>
#include <string>

namespace treectl {

/// Appends all that `descriptor` has to `text`, at most `maxBytes` and a block. 0, or the number of
/// the error: EINTR if `StopSignals` has received one.
[[nodiscard]] int readAll(int descriptor, std::string& text, std::size_t maxBytes);

/// Appends the content of a file to `text`; "-" is standard input. 0, or the number of the error.
[[nodiscard]] int readInputFile(const std::string& path, std::string& text);

/// Writes a file in one step: to a temporary file beside it, which then takes its place, so that
/// there is the old file or the whole new one. What is no regular file, such as a device or a pipe,
/// is written itself. "-" is standard output. 0, or the number of the error.
[[nodiscard]] int replaceFile(const std::string& path, const std::string& text);

}  // namespace treectl
