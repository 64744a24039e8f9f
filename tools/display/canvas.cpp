#include "tools/display/canvas.h"

#include <iterator>

namespace treectl {

Pen penOf(std::size_t index) {
  constexpr Pen pens[] = {{"32", '*'}, {"33", '+'}, {"36", 'o'},
                          {"35", 'x'}, {"34", '#'}, {"31", '@'}};
  return pens[index % std::size(pens)];
}

Canvas::Canvas(std::size_t rows, std::size_t columns, bool braille)
    : rows_(rows), columns_(columns), braille_(braille), cells_(rows * columns) {}

void Canvas::draw(std::size_t x, std::size_t top, std::size_t bottom, std::size_t series) {
  // The bits of the dots of a Braille character, by column and row.
  constexpr unsigned char bits[2][4] = {{0x01, 0x02, 0x04, 0x40}, {0x08, 0x10, 0x20, 0x80}};
  for (std::size_t y = top; y <= bottom; ++y) {
    Cell& cell = cells_[y / dotsDown() * columns_ + x / dotsAcross()];
    const unsigned bit = bits[x % dotsAcross()][y % dotsDown()];
    cell.dots = static_cast<unsigned char>(cell.dots | bit);
    cell.series = series;
  }
}

void Canvas::appendRow(ScreenLine& line, std::size_t row, const Style& style) const {
  std::size_t end = columns_;
  while (end > 0 && cells_[row * columns_ + end - 1].dots == 0) {
    --end;
  }
  std::string_view look;
  for (std::size_t i = 0; i < end; ++i) {
    const Cell& cell = cells_[row * columns_ + i];
    const Pen pen = penOf(cell.series);
    if (cell.dots == 0) {
      line.text += ' ';
      continue;
    }
    if (look != pen.look) {
      look = pen.look;
      appendLook(line, look, style);
    }
    if (braille_) {
      // U+2800 and the dots.
      line.text += '\xE2';
      line.text += static_cast<char>(0xA0U | cell.dots >> 6U);
      line.text += static_cast<char>(0x80U | (cell.dots & 0x3FU));
    } else {
      line.text += pen.mark;
    }
  }
  line.columns += end;
  if (!look.empty()) {
    endLook(line, style);
  }
}

}  // namespace treectl
