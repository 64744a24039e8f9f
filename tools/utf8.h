#pragma once

#include <cstddef>
#include <string_view>

namespace treectl {

/// The length of the UTF-8 character that `text` begins with, 1 to 4 bytes; 0 if there is none.
[[nodiscard]] inline std::size_t utf8Length(std::string_view text) {
  const auto byteAt = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  if (text.empty()) {
    return 0;
  }
  const unsigned first = byteAt(0);
  if (first < 0x80) {
    return 1;
  }
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length) {
    return 0;
  }
  for (std::size_t i = 1; i < length; ++i) {
    if ((byteAt(i) & 0xC0U) != 0x80) {
      return 0;
    }
  }
  // Longer than necessary, surrogates, and what is above the last character.
  const unsigned second = byteAt(1);
  if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
      (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F)) {
    return 0;
  }
  return length;
}

[[nodiscard]] inline bool isUtf8(std::string_view text) {
  // Most texts are ASCII.
  while (!text.empty() && static_cast<unsigned char>(text.front()) < 0x80) {
    text.remove_prefix(1);
  }
  while (!text.empty()) {
    const std::size_t length = utf8Length(text);
    if (length == 0) {
      return false;
    }
    text.remove_prefix(length);
  }
  return true;
}

[[nodiscard]] inline bool isControlByte(char byte) {
  return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F;
}

}  // namespace treectl
