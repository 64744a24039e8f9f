#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "term/styled_text.h"

/// The tree that a listing shows: servers, or a server's nodes, parts and elements.
///
/// A plain value that owns its subtree. It may move between threads, but two threads may
/// not use it at the same time. A tree may be as deep as memory allows: nothing here
/// recurses, and releasing a tree needs no memory and cannot fail.

namespace treescope {

struct ListingNode {
  using Children = std::vector<ListingNode>;

  ListingNode() = default;
  ListingNode(ListingNode&& other) noexcept = default;
  ListingNode& operator=(ListingNode&& other) noexcept = default;
  ~ListingNode();

  /// Appends an empty child and returns it. The reference is valid until the next child
  /// is added.
  ListingNode& addChild();

  /// Whether the entry is shown with a "/" after its name. A node whose content is not
  /// listed has one empty child for this purpose.
  [[nodiscard]] bool hasChildren() const { return !children.empty(); }

  /// The marks as a style.
  [[nodiscard]] Style style() const { return {.attributes = subscribedMark, .colour = kindMark}; }

  /// Any bytes. Name and value are shown up to their first zero byte.
  std::optional<std::string> name;
  std::optional<std::string> value;
  /// Used as `StyledText::attributes`: bold if updates are subscribed.
  std::uint32_t subscribedMark = 0;
  /// Used as `StyledText::colour`: green for a part that has elements, blue for a node.
  std::uint32_t kindMark = 0;
  /// In display order.
  Children children;
};

/// Releases all descendants of `node`; its own texts and marks stay.
void freeTree(ListingNode& node) noexcept;

}  // namespace treescope
