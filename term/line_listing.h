#pragma once

#include <cstddef>

#include "term/listing_node.h"
#include "term/screen_printer.h"

/// Listings with one line per entry: long lists, and trees drawn with branches.
///
/// Called by commands on the thread that runs them, and by the update display on the
/// main thread. Each entry is styled by its marks; one that has children ends in "/" and
/// shows no value. With `reset` the lines are counted from 0 again; with `paging` the
/// listing stops after each screenful. All return false, and print nothing more, if the
/// user quit. Trees may be of any depth.

namespace treescope {

/// Lists `node`'s children with their values, names padded to the same width. A node
/// without children is listed itself, unpadded.
bool printLongList(ScreenPrinter& printer, const ListingNode& node, bool reset, bool paging);

/// Draws the descendants of `node` without values.
bool printTreeList(ScreenPrinter& printer, const ListingNode& node, bool reset, bool paging);

/// Draws the descendants of `node` with their values. The names of siblings are padded
/// to the same width.
bool printLongTree(ScreenPrinter& printer, const ListingNode& node, bool reset, bool paging);

/// Draws `node` itself, always as one that has children, and its descendants, indented
/// by `depth` levels.
bool printTreeLevel(ScreenPrinter& printer, std::size_t depth, const ListingNode& node,
                    bool withValues, bool paging);

}  // namespace treescope
