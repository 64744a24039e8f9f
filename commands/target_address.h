#pragma once

#include <optional>
#include <string>

#include "model/child_list.h"
#include "model/id_chain.h"
#include "model/model_client.h"

namespace treescope {

/// How commands find the part that their path addresses: the path names a child of a
/// node, optionally with an element's index after it, or, inside a part, one of the
/// part's elements.
///
/// The functions with a client make requests: they run on the command thread and
/// take the client mutex for each request. The others are pure.

/// A path in two parts.
struct SplitPath {
  /// The text before the last "/"; "/" itself if that is the first character; empty
  /// without a "/".
  std::string parent;
  /// The text after the last "/".
  std::string last;

  bool operator==(const SplitPath&) const = default;
};

[[nodiscard]] SplitPath splitAtLastSlash(const std::string& path);

/// Removes "[index]" from `component` and returns the index: the text between the
/// first "[" and the first "]", at least one character. If there is none,
/// `component` is unchanged and the result is empty.
[[nodiscard]] std::string takeElementSuffix(std::string& component);

/// The node or part in which the last component of a path is looked up.
struct ResolvedParent {
  NamedChain chain;
  ChildList children;

  /// A parent without children is a part.
  [[nodiscard]] bool isNode() const { return !children.empty(); }
};

/// Resolves `path` and fetches the children; nothing if the path does not resolve or
/// the request fails.
[[nodiscard]] std::optional<ResolvedParent> resolveParent(ModelClient& client,
                                                          const std::string& path);

/// The chain of the child of `parent` that is displayed as `name`; nothing if there
/// is none.
[[nodiscard]] std::optional<NamedChain> findChild(const ResolvedParent& parent,
                                                  const std::string& name);

enum class TargetError {
  none,
  notResolvable,  ///< the parent does not resolve, or a request failed
  noSuchChild,    ///< the parent has no child of that name, or no name is given
  isNode,         ///< expected a part, got a node
};

/// A part, or one element of it.
struct Target {
  TargetError error = TargetError::none;
  /// The part; the node if `error` is `isNode`; unspecified for the other errors.
  NamedChain chain;
  /// The element's index as written, or the decimal index of the element that was
  /// named; empty for the whole part.
  std::string indexText;
  /// Whether the parent in the path is the part itself.
  bool parentIsPart = false;
};

/// The target of `path`, which is expanded (`TreeScope::expandPath`). An empty path
/// addresses the current directory.
[[nodiscard]] Target addressTarget(ModelClient& client, const std::string& path);

}  // namespace treescope
