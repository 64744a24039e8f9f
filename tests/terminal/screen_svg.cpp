#include "tests/terminal/screen_svg.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

namespace terminal_test {

namespace {

using test_support::Cell;
using test_support::Screen;

constexpr std::uint32_t standardForeground = 0xd8dee9;
constexpr std::uint32_t standardBackground = 0x1e222a;

// In tenths of a pixel.
constexpr int cellWidth = 84;
constexpr int cellHeight = 180;
constexpr int baseline = 135;
constexpr int margin = 120;

std::string pixels(int tenths) {
  return std::to_string(tenths / 10) + '.' + std::to_string(tenths % 10);
}

std::string colourText(std::uint32_t colour) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "#%06x", static_cast<unsigned>(colour));
  return text.data();
}

/// Text in which no character has a meaning in XML, and each is one that XML permits.
std::string escaped(const std::string& text) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const std::string_view rest = std::string_view(text).substr(at);
    if (rest.starts_with("\xEF\xBF\xBE") || rest.starts_with("\xEF\xBF\xBF")) {
      result += '?';
      at += 2;
    } else if (text[at] == '&') {
      result += "&amp;";
    } else if (text[at] == '<') {
      result += "&lt;";
    } else if (text[at] == '>') {
      result += "&gt;";
    } else {
      result += text[at];
    }
  }
  return result;
}

/// Neighbouring cells that look the same.
struct Span {
  int column;
  int columns = 0;
  std::string text;
  bool bold;
  bool underline;
  std::uint32_t foreground;
  std::uint32_t background;

  [[nodiscard]] bool looksLike(const Span& other) const {
    return bold == other.bold && underline == other.underline && foreground == other.foreground &&
           background == other.background;
  }
};

Span spanOf(const Cell& cell, int column) {
  std::uint32_t foreground = cell.foreground.value_or(standardForeground);
  std::uint32_t background = cell.background.value_or(standardBackground);
  if (cell.reverse) {
    std::swap(foreground, background);
  }
  return {column,     cell.columns, cell.text.empty() ? " " : cell.text, cell.bold, cell.underline,
          foreground, background};
}

std::vector<Span> spansOf(const Screen& screen, int row) {
  std::vector<Span> spans;
  for (int column = 0; column < screen.columns(); ++column) {
    const Cell cell = screen.cell({row, column});
    if (cell.columns == 0) {
      continue;
    }
    Span span = spanOf(cell, column);
    if (!spans.empty() && spans.back().looksLike(span)) {
      spans.back().columns += span.columns;
      spans.back().text += span.text;
    } else {
      spans.push_back(std::move(span));
    }
  }
  return spans;
}

/// Leaves out spaces at the ends, which would show nothing.
void trim(Span& span) {
  if (span.underline) {
    return;
  }
  const std::size_t first = std::min(span.text.find_first_not_of(' '), span.text.size());
  span.text.erase(0, first);
  span.column += static_cast<int>(first);
  const std::size_t used = span.text.find_last_not_of(' ') + 1;
  span.columns -= static_cast<int>(first + span.text.size() - used);
  span.text.erase(used);
}

std::string svgOf(Span span, int row) {
  std::string svg;
  if (span.background != standardBackground) {
    svg += "<rect x=\"" + pixels(margin + span.column * cellWidth) + "\" y=\"" +
           pixels(margin + row * cellHeight) + "\" width=\"" + pixels(span.columns * cellWidth) +
           "\" height=\"" + pixels(cellHeight) + "\" fill=\"" + colourText(span.background) +
           "\"/>\n";
  }
  trim(span);
  if (span.text.empty()) {
    return svg;
  }
  // The length keeps the columns, whatever font there is: a wider one is made narrower.
  svg += "<text x=\"" + pixels(margin + span.column * cellWidth) + "\" y=\"" +
         pixels(margin + row * cellHeight + baseline) + "\" textLength=\"" +
         pixels(span.columns * cellWidth) + "\" lengthAdjust=\"spacingAndGlyphs\"";
  if (span.foreground != standardForeground) {
    svg += " fill=\"" + colourText(span.foreground) + '"';
  }
  if (span.bold) {
    svg += " font-weight=\"bold\"";
  }
  if (span.underline) {
    svg += " text-decoration=\"underline\"";
  }
  return svg + '>' + escaped(span.text) + "</text>\n";
}

}  // namespace

std::string svgOf(const Screen& screen, const std::string& title) {
  const std::string width = pixels(2 * margin + screen.columns() * cellWidth);
  const std::string height = pixels(2 * margin + screen.usedRows() * cellHeight);
  std::string svg =
      "<svg xmlns=\"http://www.w3.org/2000/svg\" role=\"img\" "
      "aria-labelledby=\"title\" aria-describedby=\"desc\" width=\"" +
      width + "\" height=\"" + height + "\" viewBox=\"0 0 " + width + ' ' + height +
      "\">\n<title id=\"title\">" + escaped(title) +
      "</title>\n<desc id=\"desc\">A terminal with " + std::to_string(screen.columns()) +
      " columns and " + std::to_string(screen.usedRows()) +
      " rows of text.</desc>\n<rect width=\"100%\" height=\"100%\" rx=\"6\" fill=\"" +
      colourText(standardBackground) +
      "\"/>\n<g xml:space=\"preserve\" style=\"white-space: pre\" font-family=\"ui-monospace, "
      "'DejaVu Sans "
      "Mono', Menlo, Consolas, monospace\" font-size=\"14\" fill=\"" +
      colourText(standardForeground) + "\">\n";
  for (int row = 0; row < screen.usedRows(); ++row) {
    for (const Span& span : spansOf(screen, row)) {
      svg += svgOf(span, row);
    }
  }
  return svg + "</g>\n</svg>\n";
}

}  // namespace terminal_test
