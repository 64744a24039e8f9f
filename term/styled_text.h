#pragma once

#include <cstdint>

/// One item of screen output: a text with its attributes and its colour.
///
/// May be created on any thread; `ScreenPrinter` prints it. Unknown attribute bits and
/// colours are ignored.

namespace treescope {

/// Bits of `StyledText::attributes`. They may be combined; other bits have no meaning.
inline constexpr std::uint32_t attributeUnderline = 2;
inline constexpr std::uint32_t attributeReverse = 4;
inline constexpr std::uint32_t attributeBold = 8;
inline constexpr std::uint32_t attributeBlink = 16;

/// Values of `StyledText::colour`. Any other value sets no colour.
inline constexpr std::uint32_t colourDefault = 0;
inline constexpr std::uint32_t colourWhite = 1;
inline constexpr std::uint32_t colourRed = 2;
inline constexpr std::uint32_t colourGreen = 3;
inline constexpr std::uint32_t colourBlue = 4;

/// The attributes and the colour of an item, for functions that need no text.
struct Style {
  std::uint32_t attributes = 0;
  std::uint32_t colour = colourDefault;
};

struct StyledText {
  std::uint32_t attributes = 0;
  std::uint32_t colour = colourDefault;
  /// Zero-terminated, any bytes. Not owned; may be null, which writes nothing.
  const char* text = nullptr;

  [[nodiscard]] Style style() const { return {.attributes = attributes, .colour = colour}; }
};

}  // namespace treescope
