#include "term/listing_node.h"

#include <utility>

namespace treescope {

ListingNode::~ListingNode() {
  // Most nodes of a tree are leaves.
  if (hasChildren()) {
    freeTree(*this);
  }
}

ListingNode& ListingNode::addChild() {
  return children.emplace_back();
}

// Depth first, without recursion and without a stack of its own: when a node with
// remaining siblings is opened, those siblings are parked as the children of the node's
// first child, whose own children are opened next.
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
