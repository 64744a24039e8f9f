#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "modelsrv/model_node.h"

namespace ModelSrv::internal {

/// Visits a part and its published descendants, each node before its children and these in the
/// ascending order of their ids. The tree may change between two steps: the position is a chain of
/// ids. What is added before the position is not visited, what is added after it is. Guarded by
/// the client mutex.
class TreeCursor {
 public:
  /// Begins at `top`, which must not leave the tree before `end`.
  void begin(ModelPart& top);
  void end();
  /// After `begin`: continues after the part with these ids below the top, whether it is there or
  /// not.
  void resume(std::span<const ModelPartId> idsBelowTop);
  /// The part that it began at; null after the end, or before the beginning.
  [[nodiscard]] ModelPart* top() const { return top_; }

  /// Visits the next part; null after the last one. `structureVersion` differs from that of the
  /// last call if parts have entered or left the tree since.
  ModelPart* next(std::uint64_t structureVersion);

  /// Whether the position has reached the part with these ids below the top, or would have.
  [[nodiscard]] bool hasPassed(const std::vector<ModelPartId>& idsBelowTop) const;

  /// The number of levels between the top and the part that was visited last.
  [[nodiscard]] std::size_t depth() const { return path_.size(); }

 private:
  /// A node above the position, and where its child on the way to the position is.
  struct Level {
    const ModelNode* node;
    std::size_t index;  ///< among the children in the order of ids
  };

  void findLevels();
  ModelPart* descend(const ModelNode& node);
  ModelPart* visitFrom(Level& level);

  ModelPart* top_ = nullptr;
  ModelPart* current_ = nullptr;  ///< the part at the position; null if it has left the tree
  bool started_ = false;
  std::uint64_t version_ = 0;
  std::vector<ModelPartId> path_;  ///< the position: ids below the top
  /// For each id of the path, as long as the nodes are there.
  std::vector<Level> levels_;
};

}  // namespace ModelSrv::internal
