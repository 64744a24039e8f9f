#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// The tree that a listing shows: servers, or a server's nodes, parts and
/// elements.
///
/// A plain value that owns what is below it; whoever builds one may hand it to
/// another thread, no two may use it at once. Trees may be as deep as memory
/// allows: nothing here recurses, and releasing a tree needs no memory and cannot
/// fail.

namespace treescope {

struct ListingNode {
  using Children = std::vector<ListingNode>;

  ListingNode() = default;
  ListingNode(ListingNode&& other) noexcept = default;
  ListingNode& operator=(ListingNode&& other) noexcept = default;
  ~ListingNode();

  /// Appends an empty child and gives it. Its address stays until another one
  /// follows.
  ListingNode& addChild();

  /// Shown with a "/" behind its name, whatever the children are: a node whose
  /// content is not listed has one empty child.
  [[nodiscard]] bool hasChildren() const { return !children.empty(); }

  /// Any bytes; shown up to the first zero byte, like the value.
  std::optional<std::string> name;
  std::optional<std::string> value;
  /// Shown as `StyledText::attributes`: bold where updates are subscribed.
  std::uint32_t subscribedMark = 0;
  /// Shown as `StyledText::colour`: green for a part that has elements, blue for
  /// a node.
  std::uint32_t kindMark = 0;
  /// In the order in which they are shown.
  Children children;
};

/// Releases everything below `node`; its own texts and marks stay.
void freeTree(ListingNode& node) noexcept;

}  // namespace treescope
