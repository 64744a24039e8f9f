#pragma once

#include <optional>
#include <string>

#include "model/child_list.h"
#include "model/id_chain.h"
#include "model/split_path.h"
#include "model/tree_scope.h"

namespace treescope {

/// How the commands that act on one part find it: a path names a child of a node,
/// with or without an element's index behind it, or, inside a part, one of its
/// elements.
///
/// Used by command handlers on their own thread. The requests take the client
/// mutex one by one.

/// Takes "[index]" out of `component` and returns the index: what lies between its
/// first "[" and its first "]" if that is at least one character. Otherwise
/// `component` stays as it is and the result is empty.
[[nodiscard]] std::string takeElementSuffix(std::string& component);

/// Where the last component of a path is looked for.
struct ParentPlace {
  NamedChain chain;
  ChildList children;

  /// A place without children is a part.
  [[nodiscard]] bool isNode() const { return !children.empty(); }
};

/// Resolves `parent` and lists its children; nothing where it leads nowhere or the
/// server gives no answer.
[[nodiscard]] std::optional<ParentPlace> resolveParent(TreeScope& scope, const std::string& parent);

/// The chain of the child of `place` that is shown as `name`; nothing where there
/// is none.
[[nodiscard]] std::optional<NamedChain> findChild(const ParentPlace& place,
                                                  const std::string& name);

enum class TargetFailure {
  none,
  notResolvable,  ///< the parent leads nowhere, or the server gives no answer
  noSuchChild,    ///< nothing of that name in the parent, or no name given
  isNode,         ///< a node, where a part is wanted
};

/// A part, or one element of it.
struct Target {
  TargetFailure failure = TargetFailure::none;
  /// On `isNode` the node; meaningless on the other failures.
  NamedChain chain;
  /// The element's index as written, or the decimal position of the element that
  /// was named; empty for the whole part.
  std::string indexText;
  /// The parent that the path names is the part itself.
  bool parentIsPart = false;
};

/// Finds what `path`, expanded, is about; empty means the current directory.
[[nodiscard]] Target addressTarget(TreeScope& scope, const std::string& path);

}  // namespace treescope
