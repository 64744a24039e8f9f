#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/display/cell_text.h"

namespace treectl {

/// How the curve of a series looks.
struct Pen {
  std::string_view look;  ///< the colour
  char mark;              ///< without Braille characters
};

/// The pen of the series at `index`; they repeat.
[[nodiscard]] Pen penOf(std::size_t index);

/// An area of characters that curves are drawn on. With Braille characters each one has 2 by 4
/// dots, else one.
class Canvas {
 public:
  Canvas(std::size_t rows, std::size_t columns, bool braille);

  /// In dots.
  [[nodiscard]] std::size_t width() const { return columns_ * dotsAcross(); }
  [[nodiscard]] std::size_t height() const { return rows_ * dotsDown(); }

  /// Draws the dots from `top` to `bottom` of one column of dots.
  void draw(std::size_t x, std::size_t top, std::size_t bottom, std::size_t series);

  /// Appends a row, without the empty characters at its end.
  void appendRow(ScreenLine& line, std::size_t row, const Style& style) const;

 private:
  struct Cell {
    unsigned char dots = 0;
    std::size_t series = 0;  ///< the last one drawn
  };

  [[nodiscard]] std::size_t dotsAcross() const { return braille_ ? 2 : 1; }
  [[nodiscard]] std::size_t dotsDown() const { return braille_ ? 4 : 1; }

  std::size_t rows_;
  std::size_t columns_;
  bool braille_;
  std::vector<Cell> cells_;
};

}  // namespace treectl
