#include "gateway/wire/utf8.h"

#include <cstdint>

namespace modelgate {

namespace {

std::uint8_t byteAt(std::string_view text, std::size_t at) {
  return static_cast<std::uint8_t>(text[at]);
}

/// Whether the byte after `first` excludes overlong forms, surrogates and what is above U+10FFFF.
bool isSecondOf(std::uint8_t first, std::uint8_t second) {
  const std::uint8_t smallest = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
  const std::uint8_t largest = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
  return second >= smallest && second <= largest;
}

}  // namespace

std::size_t characterSize(std::string_view text) {
  const std::uint8_t first = byteAt(text, 0);
  if (first < 0x80) {
    return 1;
  }
  const std::size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || size > text.size() || !isSecondOf(first, byteAt(text, 1))) {
    return 0;
  }
  for (std::size_t i = 2; i < size; ++i) {
    if ((byteAt(text, i) & 0xC0U) != 0x80U) {
      return 0;
    }
  }
  return size;
}

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t size = characterSize(text);
    if (size == 0) {
      return false;
    }
    text.remove_prefix(size);
  }
  return true;
}

std::string toUtf8(std::string_view text) {
  std::string valid;
  valid.reserve(text.size());
  while (!text.empty()) {
    const std::size_t size = characterSize(text);
    valid += size == 0 ? std::string_view("\xEF\xBF\xBD") : text.substr(0, size);
    text.remove_prefix(size == 0 ? 1 : size);
  }
  return valid;
}

}  // namespace modelgate
