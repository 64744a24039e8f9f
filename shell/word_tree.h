#pragma once

#include <memory>
#include <string>
#include <vector>

namespace treescope {

/// A node of the tree of names that the shell knows and patterns are matched
/// against. The root stands for no name. Belongs to the thread that runs
/// commands.
struct WordNode {
  WordNode() = default;
  WordNode(const WordNode&) = delete;
  WordNode& operator=(const WordNode&) = delete;
  /// Frees the nodes below, however deep they are, without using the stack for
  /// their depth.
  ~WordNode();

  /// Appends a child named `childName` and gives it.
  WordNode& add(std::string childName);

  /// The node that the names of `path` lead to from here, the first of each name;
  /// those that are missing are added.
  WordNode& at(const std::vector<std::string>& path);

  /// Makes the children those of `names`, in that order and each once. One that was
  /// there already keeps what is below it; one that is not among them is freed.
  void setChildren(const std::vector<std::string>& names);

  std::string name;
  std::string text;
  std::vector<std::unique_ptr<WordNode>> children;
};

/// The paths of the nodes that `pattern` (zero-terminated, not null) matches, in
/// the tree's order, written as names joined with "/".
///
/// The pattern is a basic regular expression (regex(7)) in which a "*" stands for
/// any text; it has to cover a path whole, and a path has as many names as the
/// pattern has components. A pattern that is no expression, is longer than 4096
/// bytes, or whose repetitions "\{n\}" multiply to more than 100,000, matches
/// nothing.
[[nodiscard]] std::vector<std::string> matchingPaths(const WordNode& root, const char* pattern);

}  // namespace treescope
