#pragma once

#include <string>

#include "term/styled_text.h"

/// The escape sequences of an ANSI terminal (ECMA-48) that the shell writes.
///
/// Pure functions that return the bytes; `ScreenPrinter` and the line editor print them.
/// Any thread. May throw std::bad_alloc.

namespace treescope {

inline constexpr const char* eraseToLineEnd = "\033[0K";
/// Erases the whole line; the cursor stays in its column.
inline constexpr const char* eraseLine = "\033[2K";

/// Moves the cursor to `column` of its line, counted from 1. Terminals treat 0 as 1.
[[nodiscard]] std::string cursorToColumn(int column);

/// Switches the attributes on, in the order reverse, bold, blink, underline, then the
/// colour. The default colour has a sequence too; an unknown colour has none.
[[nodiscard]] std::string styleOn(Style style);

/// Switches the attributes off, in the same order, then returns to the default colour
/// unless the colour is the default.
[[nodiscard]] std::string styleOff(Style style);

// The same, appended to `text`, for lines that are built of many pieces.

void appendCursorToColumn(std::string& text, int column);
void appendStyleOn(std::string& text, Style style);
void appendStyleOff(std::string& text, Style style);

}  // namespace treescope
