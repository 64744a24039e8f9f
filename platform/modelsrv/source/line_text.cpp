#include "modelsrv/source/line_text.h"

#include <cstdint>

#include "modelsrv/part_description.h"

namespace ModelSrv::internal {

namespace {

/// The code point that `text` begins with, and its size in bytes; size 0 if that is not valid
/// UTF-8. `text` is not empty.
struct CodePoint {
  explicit CodePoint(std::string_view text) {
    const auto first = static_cast<std::uint8_t>(text.front());
    if (first < 0x80) {
      value = first;
      size = 1;
      return;
    }
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (first < 0xC2 || first > 0xF4 || length > text.size()) {
      return;
    }
    value = first & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
      const auto next = static_cast<std::uint8_t>(text[i]);
      if ((next & 0xC0U) != 0x80U) {
        return;
      }
      value = value << 6U | (next & 0x3FU);
    }
    const bool isSurrogate = value >= 0xD800 && value <= 0xDFFF;
    size = value < smallest[length] || value > 0x10FFFF || isSurrogate ? 0 : length;
  }

  [[nodiscard]] bool isPrintable() const {
    return size != 0 && value >= 0x20 && (value < 0x7F || value > 0x9F);
  }

  std::uint32_t value = 0;
  std::size_t size = 0;
};

}  // namespace

std::string toLine(std::string_view text, std::size_t maxBytes) {
  std::string line;
  while (!text.empty()) {
    const CodePoint next(text);
    const std::string_view shown = next.isPrintable() ? text.substr(0, next.size) : "?";
    if (line.size() + shown.size() > maxBytes) {
      break;
    }
    line += shown;
    text.remove_prefix(next.size == 0 ? 1 : next.size);
  }
  return line;
}

}  // namespace ModelSrv::internal

namespace ModelSrv {

bool isLine(std::string_view text) {
  while (!text.empty()) {
    const internal::CodePoint next(text);
    if (!next.isPrintable()) {
      return false;
    }
    text.remove_prefix(next.size);
  }
  return true;
}

}  // namespace ModelSrv
