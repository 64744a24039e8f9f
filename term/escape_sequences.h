#pragma once

#include <cstdint>
#include <string>

/// The escape sequences of an ANSI terminal (ECMA-48) that the shell writes.
///
/// Bytes out, no descriptor: what puts them on the screen is `ScreenPrinter` and
/// the line editor. Any thread may call; nothing can fail.

namespace treescope {

inline constexpr const char* eraseToLineEnd = "\033[0K";
/// Erases the whole line; the cursor stays in its column.
inline constexpr const char* eraseLine = "\033[2K";

/// Moves the cursor to `column` of its line, counted from 1. Terminals take 0 as
/// 1.
[[nodiscard]] std::string cursorToColumn(int column);

/// Switches on the attributes of `attributes` (`StyledText`), in the order
/// reverse, bold, blink, underline, then the colour. The default colour has a
/// sequence, a colour that does not exist has none.
[[nodiscard]] std::string styleOn(std::uint32_t attributes, std::uint32_t colour);

/// Switches the same attributes off, in the same order, then returns to the
/// default colour unless `colour` is that already.
[[nodiscard]] std::string styleOff(std::uint32_t attributes, std::uint32_t colour);

// The same at the end of `text`, for lines that are made of many pieces.

void appendCursorToColumn(std::string& text, int column);
void appendStyleOn(std::string& text, std::uint32_t attributes, std::uint32_t colour);
void appendStyleOff(std::string& text, std::uint32_t attributes, std::uint32_t colour);

}  // namespace treescope
