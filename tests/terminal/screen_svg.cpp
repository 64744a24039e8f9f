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

/// How a cell is drawn.
enum class Form { text, dots, thinLines, thickLines };

/// The lines of a character: from the middle of its cell to its sides.
struct Lines {
  std::string_view character;
  Form form;
  bool left, right, up, down;
};

// What charts are made of. Lines and dots are drawn: fonts leave gaps between the lines, or take
// the dots from another font, with other columns.
constexpr std::array<Lines, 6> lineCharacters{
    {{"\u2500", Form::thinLines, true, true, false, false},
     {"\u2501", Form::thickLines, true, true, false, false},
     {"\u2502", Form::thinLines, false, false, true, true},
     {"\u2514", Form::thinLines, false, true, true, false},
     {"\u2524", Form::thinLines, true, false, true, true},
     {"\u2534", Form::thinLines, true, true, true, false}}};

const Lines* findLines(std::string_view character) {
  const auto* const found =
      std::find_if(lineCharacters.begin(), lineCharacters.end(),
                   [character](const Lines& lines) { return lines.character == character; });
  return found == lineCharacters.end() ? nullptr : found;
}

/// The bits of a Braille pattern, one for each dot; 0 for another character.
unsigned dotsOf(std::string_view character) {
  constexpr unsigned firstPattern = 0x2800;
  if (character.size() != 3 || !character.starts_with('\xE2')) {
    return 0;
  }
  const unsigned second = static_cast<unsigned char>(character[1]) & 0x3FU;
  const unsigned third = static_cast<unsigned char>(character[2]) & 0x3FU;
  const unsigned code = 0x2000U | second << 6U | third;
  return code >= firstPattern && code <= firstPattern + 0xFF ? code - firstPattern : 0;
}

Form formOf(std::string_view character) {
  const Lines* const lines = findLines(character);
  return lines != nullptr ? lines->form : dotsOf(character) != 0 ? Form::dots : Form::text;
}

/// Neighbouring cells that look the same.
struct Span {
  int column;
  int columns = 0;
  std::string text;
  Form form;
  bool bold;
  bool underline;
  std::uint32_t foreground;
  std::uint32_t background;

  [[nodiscard]] bool looksLike(const Span& other) const {
    return form == other.form && bold == other.bold && underline == other.underline &&
           foreground == other.foreground && background == other.background;
  }
};

Span spanOf(const Cell& cell, int column) {
  std::uint32_t foreground = cell.foreground.value_or(standardForeground);
  std::uint32_t background = cell.background.value_or(standardBackground);
  if (cell.reverse) {
    std::swap(foreground, background);
  }
  const std::string text = cell.text.empty() ? " " : cell.text;
  return {column,    cell.columns,   text,       formOf(text),
          cell.bold, cell.underline, foreground, background};
}

std::vector<Span> spansOf(const Screen& screen, int row) {
  std::vector<Span> spans;
  for (int column = 0; column < screen.columns(); ++column) {
    const Cell cell = screen.cell({row, column});
    if (cell.columns == 0) {
      continue;
    }
    Span span = spanOf(cell, column);
    if (!spans.empty() && span.text == " " && !span.underline) {
      // What is drawn goes on after spaces.
      Span drawn = span;
      drawn.form = spans.back().form;
      span.form = spans.back().looksLike(drawn) ? drawn.form : span.form;
    }
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

/// The path of a character that is drawn, in its cell with the left upper corner at `x` and `y`.
std::string pathOf(std::string_view character, int x, int y) {
  std::string path;
  if (const Lines* const lines = findLines(character)) {
    const int firstX = lines->left ? 0 : cellWidth / 2;
    const int lastX = lines->right ? cellWidth : cellWidth / 2;
    const int firstY = lines->up ? 0 : cellHeight / 2;
    const int lastY = lines->down ? cellHeight : cellHeight / 2;
    if (firstX != lastX) {
      path += 'M' + pixels(x + firstX) + ' ' + pixels(y + cellHeight / 2) + 'h' +
              pixels(lastX - firstX);
    }
    if (firstY != lastY) {
      path +=
          'M' + pixels(x + cellWidth / 2) + ' ' + pixels(y + firstY) + 'v' + pixels(lastY - firstY);
    }
    return path;
  }
  // The column and the row of each bit's dot.
  constexpr std::array<std::array<int, 2>, 8> dots{
      {{0, 0}, {0, 1}, {0, 2}, {1, 0}, {1, 1}, {1, 2}, {0, 3}, {1, 3}}};
  const unsigned bits = dotsOf(character);
  for (std::size_t i = 0; i < dots.size(); ++i) {
    if ((bits >> i & 1U) != 0) {
      path += 'M' + pixels(x + cellWidth / 4 + dots[i][0] * cellWidth / 2) + ' ' +
              pixels(y + cellHeight / 8 + dots[i][1] * cellHeight / 4) + "h0";
    }
  }
  return path;
}

std::string drawnSvgOf(const Span& span, int row) {
  std::string path;
  int column = span.column;
  for (std::size_t at = 0; at < span.text.size(); ++column) {
    // The characters that are drawn have three bytes.
    const std::size_t bytes = span.text[at] == ' ' ? 1 : 3;
    path += pathOf(std::string_view(span.text).substr(at, bytes), margin + column * cellWidth,
                   margin + row * cellHeight);
    at += bytes;
  }
  const char* const width = span.form == Form::thinLines ? "1.2" : "3";
  return "<path stroke=\"" + colourText(span.foreground) + "\" stroke-width=\"" + width + '"' +
         (span.form == Form::dots ? " stroke-linecap=\"round\"" : "") + " d=\"" + path + "\"/>\n";
}

std::string svgOf(Span span, int row) {
  std::string svg;
  if (span.background != standardBackground) {
    svg += "<rect x=\"" + pixels(margin + span.column * cellWidth) + "\" y=\"" +
           pixels(margin + row * cellHeight) + "\" width=\"" + pixels(span.columns * cellWidth) +
           "\" height=\"" + pixels(cellHeight) + "\" fill=\"" + colourText(span.background) +
           "\"/>\n";
  }
  if (span.form != Form::text) {
    return svg + drawnSvgOf(span, row);
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
