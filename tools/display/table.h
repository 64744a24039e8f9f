#pragma once

#include <string>
#include <vector>

#include "tools/display/cell_text.h"

namespace treectl {

/// What a table shows of one address.
struct TableRow {
  std::string address;
  std::string value;
  std::string unit;
  std::string time;  ///< of the last change
  bool isMarked = false;
};

/// The widths of the columns. They only grow, so that a table does not jump.
struct TableWidths {
  std::size_t address = 0;
  std::size_t value = 0;
  std::size_t unit = 0;
  std::size_t time = 0;
};

/// Draws a table with a header. Returns at most `size.rows` lines. Columns that do not fit are left
/// out, the time first; then values and addresses are cut. `more` is the number of addresses that
/// `rows` leaves out, because there are more than the terminal has lines.
[[nodiscard]] std::vector<ScreenLine> drawTable(const std::vector<TableRow>& rows, std::size_t more,
                                                Size size, const Style& style, TableWidths& widths);

/// How many rows of `total` a terminal shows.
[[nodiscard]] std::size_t tableRows(std::size_t total, Size size);

}  // namespace treectl
