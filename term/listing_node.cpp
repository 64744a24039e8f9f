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
  return *children.emplace_back(std::make_unique<ListingNode>());
}

// The way back up is kept in the tree itself. Where a node is opened while
// siblings of it wait, the node takes them in place of its children and moves to
// the front of those, from where it is met again when they are gone.
void freeTree(ListingNode& node) noexcept {
  ListingNode::Children open = std::exchange(node.children, {});
  std::unique_ptr<ListingNode> next;
  while (next != nullptr || !open.empty()) {
    if (next == nullptr) {
      next = std::move(open.back());
      open.pop_back();
    }
    ListingNode::Children inner = std::exchange(next->children, {});
    if (inner.empty() || open.empty()) {
      next.reset();
    } else {
      next->children = std::exchange(open, {});
      next.swap(inner.front());
    }
    if (!inner.empty()) {
      open = std::move(inner);
    }
  }
}

}  // namespace treescope
