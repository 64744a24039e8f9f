#pragma once

#include <memory>
#include <string>
#include <vector>

namespace treescope {

/// A node of the tree of known names, which completion fills and patterns are matched
/// against. The root has no name. Used only by the thread that runs the commands.
struct WordNode {
  WordNode() = default;
  WordNode(const WordNode&) = delete;
  WordNode& operator=(const WordNode&) = delete;
  /// Frees the nodes below without recursion, so that their depth is not limited by
  /// the stack.
  ~WordNode();

  /// Appends a child named `childName` and returns it.
  WordNode& add(std::string childName);

  /// The descendant at `path`, by the first child of each name. Missing nodes are
  /// added.
  WordNode& at(const std::vector<std::string>& path);

  /// Makes `names` the names of the children, in that order and without
  /// duplicates. An existing child of such a name keeps its descendants; the other
  /// children are freed.
  void setChildren(const std::vector<std::string>& names);

  std::string name;
  std::string text;
  std::vector<std::unique_ptr<WordNode>> children;
};

/// The paths of the nodes that `pattern` (zero-terminated, not null) matches, in
/// the order of the tree. A path is the names joined with "/", without one at the
/// beginning.
///
/// The pattern is a basic regular expression (regex(7)) in which "*" means any
/// text. It must match the whole path, and only paths with as many names as the
/// pattern has components are compared. A pattern matches nothing if it is not a
/// valid expression, is longer than 4096 bytes, or has repetitions "\{n\}" whose
/// product exceeds 100,000.
[[nodiscard]] std::vector<std::string> matchingPaths(const WordNode& root, const char* pattern);

}  // namespace treescope
