#pragma once

#include <cstddef>

#include "term/listing_node.h"
#include "term/screen_printer.h"

/// Listings of a line an entry: long lists, and trees drawn with branches.
///
/// Called by commands on the thread that runs them and by the update display on
/// the main thread. Each entry is styled by its marks; one that has children ends
/// in "/" and shows no value. With `reset` a listing begins a new count of lines;
/// with `paging` it stops at each screenful. All return false when the person had
/// enough, and print nothing more then. Trees may be of any depth.

namespace treescope {

/// Lists `node`'s children, names padded to one width, with their values; a node
/// without children is listed itself, unpadded.
bool printLongList(ScreenPrinter& printer, const ListingNode& node, bool reset, bool paging);

/// Draws what is below `node`, names alone.
bool printTreeList(ScreenPrinter& printer, const ListingNode& node, bool reset, bool paging);

/// Draws what is below `node`, with the values; names are padded to one width
/// among the children of one node.
bool printLongTree(ScreenPrinter& printer, const ListingNode& node, bool reset, bool paging);

/// Draws `node` itself, as one that has children, and what is below it, indented by
/// `depth` levels.
bool printTreeLevel(ScreenPrinter& printer, std::size_t depth, const ListingNode& node,
                    bool withValues, bool paging);

}  // namespace treescope
