#pragma once

#include <string>
#include <string_view>
#include <variant>

namespace modelsrvd {

/// Why an operation failed: one line for standard error, without the program's
/// name in front and without a line feed at the end.
struct Error {
  std::string text;
};

/// The value of an operation, or why there is none. Operations without a value
/// return `std::optional<Error>`, which is empty on success.
template <typename T>
using Result = std::variant<T, Error>;

/// `text` as one line that is safe to print on a terminal: control bytes become
/// `\xNN`. For text from files and from the command line.
[[nodiscard]] inline std::string oneLine(std::string_view text) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string line;
  line.reserve(text.size());
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7F) {
      line += "\\x";
      line += digits[byte >> 4U];
      line += digits[byte & 0xFU];
    } else {
      line += character;
    }
  }
  return line;
}

}  // namespace modelsrvd
