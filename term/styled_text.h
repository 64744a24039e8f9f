#pragma once

#include <cstdint>

/// One item of screen output: a text with its attributes and its colour.
///
/// Made by whoever has something to show, on any thread, and handed to a
/// `ScreenPrinter`. Nothing here can fail: attribute bits without a meaning and
/// colours that do not exist are simply not shown.

namespace treescope {

/// Bits of `StyledText::attributes`; they may be combined, other bits mean
/// nothing.
inline constexpr std::uint32_t attributeUnderline = 2;
inline constexpr std::uint32_t attributeReverse = 4;
inline constexpr std::uint32_t attributeBold = 8;
inline constexpr std::uint32_t attributeBlink = 16;

/// Values of `StyledText::colour`; any other value is no colour.
inline constexpr std::uint32_t colourDefault = 0;
inline constexpr std::uint32_t colourWhite = 1;
inline constexpr std::uint32_t colourRed = 2;
inline constexpr std::uint32_t colourGreen = 3;
inline constexpr std::uint32_t colourBlue = 4;

struct StyledText {
  std::uint32_t attributes = 0;
  std::uint32_t colour = colourDefault;
  /// Zero-terminated, any bytes; not owned, may be null (nothing is written).
  const char* text = nullptr;
};

}  // namespace treescope
