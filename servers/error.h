#pragma once

#include <string>
#include <string_view>
#include <variant>

namespace modelsrvd {

/// Why something could not be done: one line for standard error, without the
/// program's name in front and without a line feed behind.
struct Error {
  std::string text;
};

/// What an operation gives, or why it gives nothing.
template <typename T>
using Result = std::variant<T, Error>;

/// `text` as one line that a terminal shows as it stands: control bytes become
/// `\xNN`. For what comes from files and from the command line.
[[nodiscard]] std::string oneLine(std::string_view text);

}  // namespace modelsrvd
