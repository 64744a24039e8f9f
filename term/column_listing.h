#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "term/listing_node.h"
#include "term/screen_printer.h"

/// Listings in columns, as wide as the terminal.
///
/// Called by commands and by completion, on the thread that runs them. With
/// `reset` a listing begins a new count of lines; with `paging` it stops at each
/// screenful. The printing operations return false when the person had enough, and
/// print nothing more then. Lengths are bytes. Where the terminal gives no width,
/// and in batch mode, there is one column.

namespace treescope {

struct ColumnLayout {
  /// Bytes that each item is padded to: the longest name and two blanks.
  std::size_t width = 2;
  /// Items in a row, at least one.
  std::size_t columns = 1;

  bool operator==(const ColumnLayout&) const = default;
};

[[nodiscard]] ColumnLayout columnLayout(const ScreenPrinter& printer,
                                        const std::vector<std::string>& names);

/// The layout of `node`'s children; one that has children itself is a "/" longer.
[[nodiscard]] ColumnLayout nodeColumnLayout(const ScreenPrinter& printer, const ListingNode& node);

/// The width of that layout.
[[nodiscard]] std::size_t nodeColumnWidth(const ListingNode& node);

/// Lists `names` without attributes. In batch mode an empty line follows each.
bool printColumns(ScreenPrinter& printer, const std::vector<std::string>& names, bool reset,
                  bool paging);

/// Lists the names of `node`'s children with their marks, each on a line of its
/// own in batch mode.
bool printNodeColumns(ScreenPrinter& printer, const ListingNode& node, bool reset, bool paging);

}  // namespace treescope
