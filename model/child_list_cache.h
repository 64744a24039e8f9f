#pragma once

#include <vector>

#include "model/child_list.h"
#include "model/id_chain.h"

namespace treescope {

/// The children of the node that was last looked at, and of those above it.
///
/// A command that names many parts one by one walks down to each from the top,
/// and most of the way is the way to the one before. Kept for the run of one such
/// command and for its thread; a tree that changes meanwhile is seen as it was
/// when the command passed. Of the whole tree only one branch is kept.
class ChildListCache {
 public:
  /// Lets `slot` point at a new object for as long as this one lives, or leaves it
  /// where it points at one already.
  class Use;

  /// The cached children of `chain`, or null.
  [[nodiscard]] const ChildList* find(const IdChain& chain) const;

  /// Stores the children of `chain` and forgets what is not on the way to it.
  void store(const IdChain& chain, const ChildList& children);

 private:
  /// How many levels of `branch_` lie on the way to `chain`.
  [[nodiscard]] std::size_t sharedLevels(const IdChain& chain) const;

  /// The chain of the deepest node in `lists_`, whose lists belong to that node and
  /// to those above it as far up as `top_` ids below the root.
  IdChain branch_;
  std::size_t top_ = 0;
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
