#pragma once

#include <cstddef>
#include <vector>

#include "model/child_list.h"
#include "model/id_chain.h"

namespace treescope {

/// A cache of child lists for a command that resolves many paths: it keeps the lists
/// of the last node and of the nodes above it, that is, of one branch of the tree.
/// Successive paths mostly share that branch.
///
/// Exists while one such command runs and belongs to that command's thread. Entries
/// are not invalidated: the command sees the tree as it was when it first listed a
/// node.
class ChildListCache {
 public:
  /// Points `slot` at a new cache for the lifetime of this object, or leaves it
  /// unchanged if it points at a cache already.
  class Use;

  /// The cached children of `chain`, or null. Valid until the next `store`.
  [[nodiscard]] const ChildList* find(const IdChain& chain) const;

  /// Stores the children of `chain` and drops the lists of nodes that are not above
  /// it.
  void store(const IdChain& chain, const ChildList& children);

 private:
  /// How many leading ids `branch_` and `chain` have in common.
  [[nodiscard]] std::size_t sharedLevels(const IdChain& chain) const;

  /// The chain of the deepest cached node.
  IdChain branch_;
  /// The length of the chain of the topmost cached node.
  std::size_t top_ = 0;
  /// The lists from the topmost node down to the deepest.
  std::vector<ChildList> lists_;
};

class ChildListCache::Use {
 public:
  explicit Use(ChildListCache*& slot);
  ~Use();
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;

 private:
  ChildListCache*& slot_;
  ChildListCache* const before_;
  ChildListCache own_;
};

}  // namespace treescope
