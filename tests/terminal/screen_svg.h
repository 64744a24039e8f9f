#pragma once

#include <string>

#include "tests/support/screen.h"

namespace terminal_test {

/// The used rows of a screen as an SVG document, in all columns, on a dark background; the cursor
/// is left out. Lines and Braille patterns are drawn, all else is text. The same screen and title
/// give the same bytes. A reader that cannot see it is told `title`.
std::string svgOf(const test_support::Screen& screen, const std::string& title);

}  // namespace terminal_test
