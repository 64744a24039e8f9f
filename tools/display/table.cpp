#include "tools/display/table.h"

#include <algorithm>

namespace treectl {

namespace {

constexpr std::size_t gap = 2;

/// Makes the columns as wide as what they have.
void grow(TableWidths& widths, const TableRow& row) {
  widths.address = std::max(widths.address, columnsOf(row.address));
  widths.value = std::max(widths.value, columnsOf(row.value));
  widths.unit = std::max(widths.unit, columnsOf(row.unit));
  widths.time = std::max(widths.time, columnsOf(row.time));
}

/// The widths that fit into `columns`; 0 for a column that is left out.
TableWidths fit(TableWidths widths, std::size_t columns) {
  const auto total = [&] {
    std::size_t sum = widths.address + gap + widths.value;
    for (const std::size_t width : {widths.unit, widths.time}) {
      sum += width > 0 ? width + gap : 0;
    }
    return sum;
  };
  for (std::size_t* const optional : {&widths.time, &widths.unit}) {
    if (total() > columns) {
      *optional = 0;
    }
  }
  if (total() > columns) {
    // The value gets half at most, and what a short address leaves.
    const std::size_t room = columns > gap ? columns - gap : 0;
    const std::size_t left = room > widths.address ? room - widths.address : 0;
    widths.value = std::min(widths.value, std::max(room / 2, left));
    widths.address = std::min(widths.address, room - widths.value);
  }
  return widths;
}

ScreenLine drawRow(const TableRow& row, const TableWidths& widths, std::size_t columns,
                   const Style& style) {
  ScreenLine line;
  const auto appendGap = [&] {
    const std::size_t count = std::min(gap, columns - std::min(columns, line.columns));
    line.text.append(count, ' ');
    line.columns += count;
  };
  appendPadded(line, row.address, std::min(widths.address, columns), style);
  appendGap();
  if (row.isMarked) {
    appendLook(line, "1;31", style);
  }
  appendPadded(line, row.value, widths.value, style);
  if (row.isMarked) {
    endLook(line, style);
  }
  if (widths.unit > 0) {
    appendGap();
    appendPadded(line, row.unit, widths.unit, style);
  }
  if (widths.time > 0) {
    appendGap();
    appendPadded(line, row.time, widths.time, style);
  }
  return line;
}

}  // namespace

std::size_t tableRows(std::size_t total, Size size) {
  if (total < size.rows) {
    return total;
  }
  // The header, and the line that says how many there are more.
  constexpr std::size_t others = 2;
  return size.rows > others ? size.rows - others : 0;
}

std::vector<ScreenLine> drawTable(const std::vector<TableRow>& rows, std::size_t more, Size size,
                                  const Style& style, TableWidths& widths) {
  const bool hasUnits =
      std::any_of(rows.begin(), rows.end(), [](const TableRow& row) { return !row.unit.empty(); });
  const TableRow header{"ADDRESS", "VALUE", hasUnits || widths.unit > 0 ? "UNIT" : "", "CHANGED"};
  grow(widths, header);
  for (const TableRow& row : rows) {
    grow(widths, row);
  }
  const TableWidths fitting = fit(widths, size.columns);
  std::vector<ScreenLine> lines;
  ScreenLine top;
  appendLook(top, "7", style);
  const ScreenLine names = drawRow(header, fitting, size.columns, style);
  appendPlainCells(top, names.text, names.columns);
  top.text.append(size.columns - std::min(size.columns, top.columns), ' ');
  top.columns = std::max(size.columns, top.columns);
  endLook(top, style);
  lines.push_back(std::move(top));
  for (const TableRow& row : rows) {
    lines.push_back(drawRow(row, fitting, size.columns, style));
  }
  if (more > 0) {
    ScreenLine last;
    appendCut(last, "and " + std::to_string(more) + " more", size.columns, style);
    lines.push_back(std::move(last));
  }
  lines.resize(std::min(lines.size(), size.rows));
  return lines;
}

}  // namespace treectl
