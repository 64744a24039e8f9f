#include "servers/error.h"

namespace modelsrvd {

std::string oneLine(std::string_view text) {
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
