#include "term/column_listing.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "term/listing_text.h"
#include "term/shown_text.h"

namespace treescope {

namespace {

constexpr std::size_t columnGap = 2;

std::size_t shownLength(const ListingNode& node) {
  return shownNameSize(node.name) + (node.hasChildren() ? 1 : 0);
}

ColumnLayout layoutOfWidth(const ScreenPrinter& printer, std::size_t width) {
  const auto screen = static_cast<std::size_t>(std::max(printer.screenColumns(), 0));
  return {width, std::max<std::size_t>(screen / width, 1)};
}

/// Places items side by side and writes each row in one call.
class RowWriter {
 public:
  RowWriter(ScreenPrinter& printer, ColumnLayout layout, bool paging, bool endsFullRows)
      : printer_(printer), layout_(layout), paging_(paging), endsFullRows_(endsFullRows) {}

  /// Pads `text` in place to the width of a column and adds it; writes the row if that
  /// fills it. Returns false, without adding, if the user quit.
  bool add(Style style, std::string& text) {
    if (itemsInRow_ == 0 && !printer_.countLine(paging_)) {
      return false;
    }
    text.resize(layout_.width, ' ');
    printer_.appendStyledAt(row_, column_, {style.attributes, style.colour, text.c_str()});
    ++itemsInRow_;
    if (itemsInRow_ < layout_.columns) {
      // The row fits the terminal, so the column fits an int.
      column_ += static_cast<int>(layout_.width);
      return true;
    }
    writeRow(endsFullRows_);
    return true;
  }

  void endRow() {
    if (itemsInRow_ != 0) {
      writeRow(true);
    }
  }

 private:
  void writeRow(bool withLineFeed) {
    if (withLineFeed) {
      row_ += '\n';
    }
    printer_.write(row_);
    row_.clear();
    itemsInRow_ = 0;
    column_ = 1;
  }

  ScreenPrinter& printer_;
  const ColumnLayout layout_;
  const bool paging_;
  const bool endsFullRows_;
  std::string row_;
  std::size_t itemsInRow_ = 0;
  int column_ = 1;
};

}  // namespace

ColumnLayout columnLayout(const ScreenPrinter& printer, const std::vector<std::string>& names) {
  std::size_t longest = 0;
  for (const std::string& name : names) {
    longest = std::max(longest, shownSize(name));
  }
  return layoutOfWidth(printer, longest + columnGap);
}

ColumnLayout nodeColumnLayout(const ScreenPrinter& printer, const ListingNode& node) {
  return layoutOfWidth(printer, nodeColumnWidth(node));
}

std::size_t nodeColumnWidth(const ListingNode& node) {
  std::size_t longest = 0;
  for (const ListingNode& child : node.children) {
    longest = std::max(longest, shownLength(child));
  }
  return longest + columnGap;
}

bool printColumns(ScreenPrinter& printer, const std::vector<std::string>& names, bool reset,
                  bool paging) {
  if (reset) {
    printer.resetCount();
  }
  RowWriter rows(printer, columnLayout(printer, names), paging, true);
  std::string text;
  for (const std::string& name : names) {
    text.clear();
    appendShown(text, name);
    if (!rows.add({}, text)) {
      return false;
    }
  }
  rows.endRow();
  return true;
}

bool printNodeColumns(ScreenPrinter& printer, const ListingNode& node, bool reset, bool paging) {
  if (reset) {
    printer.resetCount();
  }
  RowWriter rows(printer, nodeColumnLayout(printer, node), paging, !printer.batch());
  std::string text;
  for (const ListingNode& child : node.children) {
    text.clear();
    appendNameText(text, child.name);
    if (child.hasChildren()) {
      text += '/';
    }
    if (!rows.add(child.style(), text)) {
      return false;
    }
  }
  rows.endRow();
  return true;
}

}  // namespace treescope
