#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "term/listing_node.h"
#include "term/screen_printer.h"

/// Listings in columns, as wide as the terminal.
///
/// Called by commands and by completion, on the thread that runs them. With `reset` the
/// lines are counted from 0 again; with `paging` the listing stops after each screenful.
/// The printing operations return false, and print nothing more, if the user quit.
/// Lengths are in bytes of the names as they are shown (term/shown_text.h). If the terminal's width
/// is unknown, and in batch mode, there is one column.

namespace treescope {

struct ColumnLayout {
  /// Bytes that each item is padded to: the longest name and two spaces.
  std::size_t width = 2;
  /// Items per row, at least one.
  std::size_t columns = 1;

  bool operator==(const ColumnLayout&) const = default;
};

[[nodiscard]] ColumnLayout columnLayout(const ScreenPrinter& printer,
                                        const std::vector<std::string>& names);

/// The layout of `node`'s children. The "/" after a child that has children itself counts
/// as part of its name.
[[nodiscard]] ColumnLayout nodeColumnLayout(const ScreenPrinter& printer, const ListingNode& node);

/// The width of that layout.
[[nodiscard]] std::size_t nodeColumnWidth(const ListingNode& node);

/// Lists `names` without attributes. In batch mode an empty line follows each name.
bool printColumns(ScreenPrinter& printer, const std::vector<std::string>& names, bool reset,
                  bool paging);

/// Lists the names of `node`'s children, styled by their marks. In batch mode each is
/// on a line of its own.
bool printNodeColumns(ScreenPrinter& printer, const ListingNode& node, bool reset, bool paging);

}  // namespace treescope
