#include "modelsrv/source/tree_cursor.h"

#include <algorithm>

#include "modelsrv/source/part_access.h"

namespace ModelSrv::internal {

namespace {

/// The index of the first child whose id is at least `id`.
std::size_t lowerBound(const std::vector<ModelPart*>& children, ModelPartId id) {
  const auto at = std::lower_bound(
      children.begin(), children.end(), id,
      [](const ModelPart* child, ModelPartId wanted) { return child->id() < wanted; });
  return static_cast<std::size_t>(at - children.begin());
}

}  // namespace

void TreeCursor::begin(ModelPart& top) {
  end();
  top_ = &top;
}

void TreeCursor::end() {
  top_ = nullptr;
  current_ = nullptr;
  started_ = false;
  path_.clear();
  levels_.clear();
}

void TreeCursor::resume(std::span<const ModelPartId> idsBelowTop) {
  path_.assign(idsBelowTop.begin(), idsBelowTop.end());
  started_ = true;
  findLevels();
}

/// Finds the nodes of the path again, and the part at its end, after the tree has changed.
void TreeCursor::findLevels() {
  levels_.clear();
  current_ = top_;
  for (const ModelPartId id : path_) {
    const ModelNode* const node = PartAccess::asNode(*current_);
    if (node == nullptr) {
      current_ = nullptr;
      break;
    }
    levels_.push_back({node, lowerBound(PartAccess::childrenById(*node), id)});
    current_ = node->findChild(id);
    if (current_ == nullptr) {
      break;
    }
  }
}

ModelPart* TreeCursor::next(std::uint64_t structureVersion) {
  if (top_ == nullptr) {
    return nullptr;
  }
  if (!started_) {
    started_ = true;
    version_ = structureVersion;
    return current_ = top_;
  }
  if (structureVersion != version_) {
    version_ = structureVersion;
    findLevels();
  }
  if (current_ != nullptr) {
    if (const ModelNode* const node = PartAccess::asNode(*current_)) {
      if (ModelPart* const child = descend(*node)) {
        return child;
      }
    }
  }
  while (!levels_.empty()) {
    Level& level = levels_.back();
    const std::vector<ModelPart*>& children = PartAccess::childrenById(*level.node);
    const ModelPartId last = path_[levels_.size() - 1];
    path_.resize(levels_.size());
    while (level.index < children.size() && children[level.index]->id() <= last) {
      ++level.index;
    }
    if (ModelPart* const child = visitFrom(level)) {
      return child;
    }
    levels_.pop_back();
    path_.pop_back();
  }
  end();
  return nullptr;
}

ModelPart* TreeCursor::descend(const ModelNode& node) {
  path_.push_back(0);
  levels_.push_back({&node, 0});
  if (ModelPart* const child = visitFrom(levels_.back())) {
    return child;
  }
  levels_.pop_back();
  path_.pop_back();
  return nullptr;
}

/// Visits the child at the index of `level`, the last one, or the next that is published.
ModelPart* TreeCursor::visitFrom(Level& level) {
  const std::vector<ModelPart*>& children = PartAccess::childrenById(*level.node);
  for (; level.index < children.size(); ++level.index) {
    ModelPart* const child = children[level.index];
    // A child without an id is not published; one that is being added is not there yet.
    if (child->id() != ModelPartId_Void && PartAccess::parent(*child) == level.node) {
      path_.back() = child->id();
      return current_ = child;
    }
  }
  return nullptr;
}

bool TreeCursor::hasPassed(const std::vector<ModelPartId>& idsBelowTop) const {
  if (!started_) {
    return false;
  }
  return !ChainLess()(path_, idsBelowTop);
}

}  // namespace ModelSrv::internal
