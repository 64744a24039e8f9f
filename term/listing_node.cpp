#include "term/listing_node.h"

#include <utility>

namespace treescope {

ListingNode::~ListingNode() {
  // Most nodes of a tree have nothing below them.
  if (hasChildren()) {
    freeTree(*this);
  }
}

ListingNode& ListingNode::addChild() {
  return children.emplace_back();
}

// The way back up is kept in the tree itself: where siblings of an opened node wait,
// the first of those below it keeps them in place of its own children, which are
// opened next.
void freeTree(ListingNode& node) noexcept {
  ListingNode::Children open = std::exchange(node.children, {});
  while (!open.empty()) {
    ListingNode::Children below = std::exchange(open.back().children, {});
    open.pop_back();
    while (!below.empty()) {
      ListingNode::Children next;
      if (!open.empty()) {
        next = std::exchange(below.front().children, std::move(open));
      }
      open = std::move(below);
      below = std::move(next);
    }
  }
}

}  // namespace treescope
