#include "modelsrv/model_node.h"

#include <algorithm>
#include <typeinfo>
#include <utility>

#include "modelsrv/model_root.h"
#include "modelsrv/source/client_side.h"
#include "modelsrv/source/out_of_memory.h"
#include "modelsrv/source/part_access.h"
#include "modelsrv/source/server_side.h"
#include "modelsrv/source/sleeping_subscriptions.h"
#include "modelsrv/source/tree_lock.h"
#include "modelsrv/source/watch_registry.h"

namespace ModelSrv {

using internal::TreeLock;

namespace {

std::vector<ModelPart*>::const_iterator lowerBound(const std::vector<ModelPart*>& parts,
                                                   ModelPartId id) {
  return std::lower_bound(
      parts.begin(), parts.end(), id,
      [](const ModelPart* part, ModelPartId wanted) { return part->id() < wanted; });
}

}  // namespace

bool ModelNode::mayBeChild(ModelPart& part) {
  return part.asRoot() == nullptr && (part.id_ <= ModelPartId_Max || part.id_ == ModelPartId_Void);
}

ModelNode::ModelNode(ModelPartId id, std::string_view name) : ModelPart(id, name) {
  isNode_ = true;
}

ModelNode::~ModelNode() {
  detach();
  releaseChildren();
}

ModelRes ModelNode::add(ModelPart* part) {
  if (part == nullptr || !mayBeChild(*part)) {
    return ModelRes_BadArgument;
  }
  const TreeLock lock(*this);
  if (part->parent_ != nullptr) {
    return ModelRes_BadArgument;
  }
  for (const ModelPart* above = this; above != nullptr; above = above->parent_) {
    if (above == part) {
      return ModelRes_BadArgument;
    }
  }
  if (findChild(part->id_) != nullptr) {
    return ModelRes_DuplicateId;
  }
  invalidateStructure();
  return internal::withMemoryResult([&] {
    // Everything that may throw comes before the first change.
    const std::vector<ModelPart*> descendants = descendantsInTree(*part);
    internal::reserveForOne(children_);
    addToIdIndex(part);
    children_.push_back(part);
    attach(*part, descendants);
    return ModelRes_Success;
  });
}

void ModelNode::attach(ModelPart& part, const std::vector<ModelPart*>& descendants) {
  part.parent_ = this;
  EvtSrv::EventPortManager* const manager = treeManager_.load(std::memory_order_relaxed);
  if (manager == nullptr) {
    return;
  }
  part.treeManager_.store(manager, std::memory_order_release);
  for (ModelPart* const descendant : descendants) {
    descendant->treeManager_.store(manager, std::memory_order_release);
  }
  if (const ModelRoot* root = findRoot(); root != nullptr) {
    root->sleepingSessions_->partEntered(part, descendants);
    root->watchRegistry_->partEntered(part, descendants);
  }
}

ModelRes ModelNode::remove(ModelPart* part) {
  const TreeLock lock(*this);
  const auto at = std::find(children_.begin(), children_.end(), part);
  if (part == nullptr || at == children_.end()) {
    return ModelRes_NoSuchPart;
  }
  return internal::withMemoryResult([&] {
    removeAt(at);
    return ModelRes_Success;
  });
}

ModelRes ModelNode::setChildren(const std::vector<ModelPart*>& parts) {
  const TreeLock lock(*this);
  return internal::withMemoryResult([&] {
    if (parts == children_) {
      return ModelRes_Success;
    }
    // Everything that may throw or fail comes before the first change.
    std::vector<ModelPart*> byId;
    if (const ModelRes result = sortByIdAsChildren(parts, byId); result != ModelRes_Success) {
      return result;
    }
    std::vector<ModelPart*> children(parts);
    std::vector<ModelPart*> kept(parts);
    std::sort(kept.begin(), kept.end());
    std::vector<MovingPart> leaving;
    for (ModelPart* const child : children_) {
      if (!std::binary_search(kept.begin(), kept.end(), child)) {
        leaving.push_back({child, descendantsInTree(*child)});
      }
    }
    std::vector<MovingPart> entering;
    for (ModelPart* const part : parts) {
      if (part->parent_ == nullptr) {
        entering.push_back({part, descendantsInTree(*part)});
      }
    }
    invalidateStructure();
    children_.swap(children);
    addedInOrder_ = byId == parts;
    byId_.clear();
    if (!addedInOrder_) {
      byId_.swap(byId);
    }
    for (const MovingPart& moving : leaving) {
      release(*moving.part, moving.descendants);
    }
    for (const MovingPart& moving : entering) {
      attach(*moving.part, moving.descendants);
    }
    return ModelRes_Success;
  });
}

/// Sets `byId` to those of `parts` that have an id, in ascending order of it, if this node may
/// have `parts` as its children; otherwise returns why it may not.
ModelRes ModelNode::sortByIdAsChildren(const std::vector<ModelPart*>& parts,
                                       std::vector<ModelPart*>& byId) const {
  const ModelPart* top = this;
  while (top->parent_ != nullptr) {
    top = top->parent_;
  }
  std::vector<const ModelPart*> distinct(parts.begin(), parts.end());
  std::sort(distinct.begin(), distinct.end());
  if (std::adjacent_find(distinct.begin(), distinct.end()) != distinct.end()) {
    return ModelRes_BadArgument;
  }
  for (ModelPart* const part : parts) {
    // An ancestor of this node that has no parent itself is the top of the tree.
    if (part == nullptr || !mayBeChild(*part) || part == top ||
        (part->parent_ != nullptr && part->parent_ != this)) {
      return ModelRes_BadArgument;
    }
    if (part->id_ != ModelPartId_Void) {
      byId.push_back(part);
    }
  }
  std::sort(byId.begin(), byId.end(),
            [](const ModelPart* a, const ModelPart* b) { return a->id_ < b->id_; });
  const auto sameId = [](const ModelPart* a, const ModelPart* b) { return a->id_ == b->id_; };
  return std::adjacent_find(byId.begin(), byId.end(), sameId) == byId.end() ? ModelRes_Success
                                                                            : ModelRes_DuplicateId;
}

void ModelNode::release(const ModelPart& part) noexcept {
  if (const auto at = std::find(children_.begin(), children_.end(), &part); at != children_.end()) {
    removeAt(at);
  }
}

void ModelNode::removeAt(std::vector<ModelPart*>::const_iterator at) {
  TreeLock::assertHeld(*this);
  ModelPart& part = **at;
  const std::vector<ModelPart*> descendants = descendantsInTree(part);
  invalidateStructure();
  children_.erase(at);
  const auto sorted = lowerBound(byId_, part.id_);
  if (sorted != byId_.end() && *sorted == &part) {
    byId_.erase(sorted);
  }
  if (children_.empty()) {
    addedInOrder_ = true;
  }
  release(part, descendants);
}

void ModelNode::releaseChildren() {
  const TreeLock lock(*this);
  invalidateStructure();
  for (ModelPart* child : children_) {
    release(*child, descendantsInTree(*child));
  }
  children_.clear();
  byId_.clear();
  addedInOrder_ = true;
}

bool ModelNode::isCacheable() const {
  return typeid(*this) == typeid(ModelNode) || typeid(*this) == typeid(ModelRoot);
}

void ModelNode::invalidateStructure() {
  if (treeManager_.load(std::memory_order_relaxed) == nullptr) {
    return;
  }
  if (const ModelRoot* root = findRoot(); root != nullptr && root->server_ != nullptr) {
    root->server_->invalidator().invalidateAll();
  }
}

std::vector<ModelPart*> ModelNode::descendantsInTree(const ModelPart& part) const {
  const bool isInTree = treeManager_.load(std::memory_order_relaxed) != nullptr;
  return isInTree ? internal::PartAccess::descendants(part) : std::vector<ModelPart*>();
}

/// Removes the parent first: a thread that sees that no mutex guards the part must not see the
/// parent either.
void ModelNode::release(ModelPart& part, const std::vector<ModelPart*>& descendants) {
  part.parent_ = nullptr;
  if (treeManager_.load(std::memory_order_relaxed) == nullptr) {
    return;
  }
  const ModelRoot* const root = findRoot();
  if (root != nullptr) {
    root->watchRegistry_->partLeft(part, *this, descendants);
  }
  const auto leave = [this, root](ModelPart& leaving) {
    if (root != nullptr && root->client_ != nullptr) {
      root->client_->partDetached(leaving);
    }
    if (leaving.extras_ != nullptr) {
      endSubscriptions(leaving, root);
    }
    leaving.treeManager_.store(nullptr, std::memory_order_release);
  };
  leave(part);
  for (ModelPart* const descendant : descendants) {
    leave(*descendant);
  }
}

/// `part` has left the tree of `root`.
void ModelNode::endSubscriptions(ModelPart& part, const ModelRoot* root) const {
  internal::PartAccess::removeSubscriber(part, [&](internal::PartSubscribers& subscribers) {
    if (root != nullptr) {
      subscribers.partLeft(part, *this, root->sleepingSessions_);
    }
    subscribers.endSubscriptions();
  });
}

ModelPart* ModelNode::findChild(ModelPartId id) const {
  if (id > ModelPartId_Max) {
    return nullptr;
  }
  const std::vector<ModelPart*>& parts = addedInOrder_ ? children_ : byId_;
  const auto at = lowerBound(parts, id);
  return at != parts.end() && (*at)->id() == id ? *at : nullptr;
}

/// Begins to use `byId_` when `children_` is no longer in the order of the ids, or has a part
/// without an id.
void ModelNode::addToIdIndex(ModelPart* part) {
  const bool hasId = part->id_ != ModelPartId_Void;
  if (addedInOrder_ && hasId && (children_.empty() || children_.back()->id_ < part->id_)) {
    return;
  }
  if (addedInOrder_) {
    byId_ = children_;
    addedInOrder_ = false;
  }
  if (hasId) {
    byId_.insert(lowerBound(byId_, part->id_), part);
  }
}

}  // namespace ModelSrv
