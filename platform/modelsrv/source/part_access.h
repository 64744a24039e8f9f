#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "modelsrv/model_root.h"
#include "modelsrv/source/part_extras.h"
#include "modelsrv/source/watch_registry.h"

namespace ModelSrv::internal {

/// Gives the library access to the protected and private members of a part. The client mutex
/// must be held if the part is in the tree of a root.
struct PartAccess {
  static unsigned elementCount(const ModelPart& part) { return part.elementCount(); }
  static const std::vector<std::string>& elementNames(const ModelPart& part) {
    return part.elementNames();
  }
  static ModelRes appendText(const ModelPart& part, std::string& out, ModelPartIndex index) {
    return part.appendText(out, index);
  }
  static ModelRes storeFromClient(ModelPart& part, std::string_view text, bool flag,
                                  ModelPartIndex index, std::string& reason) {
    return part.storeFromClient(text, flag, index, reason);
  }
  static std::string_view typeName(const ModelPart& part) { return part.typeName(); }
  static const StatedAttributes* attributes(const ModelPart& part) {
    return part.extras_ != nullptr ? part.extras_->attributes.get() : nullptr;
  }
  /// The part as a node whose children are published now, or null.
  static const ModelNode* asNode(ModelPart& part) {
    const ModelNode* const node = part.asNode();
    // A derived class could return another node, whose children are not this part's.
    return node == &part ? node : nullptr;
  }
  /// The part as a node even if it hides its children from clients, or null.
  static const ModelNode* anyNode(ModelPart& part) {
    return part.isNode_ ? static_cast<const ModelNode*>(&part) : nullptr;
  }
  /// Whether clients can reach a part in the tree of a root: it and the nodes above it have ids,
  /// and none of these nodes hides its children.
  static bool isPublished(const ModelPart& part) {
    const ModelPart* at = &part;
    for (const ModelNode* above = part.parent_; above != nullptr; above = above->parent_) {
      // `asNode` is not const, but it changes nothing.
      if (at->id() == ModelPartId_Void || asNode(*const_cast<ModelNode*>(above)) == nullptr) {
        return false;
      }
      at = above;
    }
    return true;
  }
  /// All children, even if the part hides them from clients.
  static const std::vector<ModelPart*>& allChildren(const ModelPart& part) {
    static const std::vector<ModelPart*> none;
    return part.isNode_ ? static_cast<const ModelNode&>(part).children() : none;
  }
  /// All descendants of the part. Allocates nothing if there are none.
  static std::vector<ModelPart*> descendants(const ModelPart& part) {
    std::vector<ModelPart*> found(allChildren(part));
    for (std::size_t i = 0; i < found.size(); ++i) {
      const std::vector<ModelPart*>& children = allChildren(*found[i]);
      found.insert(found.end(), children.begin(), children.end());
    }
    return found;
  }
  /// Whether the part is a node, even if it hides its children from clients.
  static bool isNode(const ModelPart& part) { return part.isNode_; }
  static ModelRoot* asRoot(ModelPart& part) { return part.asRoot(); }
  static const ModelNode* parent(const ModelPart& part) { return part.parent_; }
  static const std::shared_ptr<SleepingSessions>& sleepingSessions(const ModelRoot& root) {
    return root.sleepingSessions_;
  }
  /// Null if the root is no client's.
  static ClientSide* client(ModelRoot& root) { return root.client_.get(); }
  static const std::shared_ptr<WatchRegistry>& watchRegistry(const ModelRoot& root) {
    return root.watchRegistry_;
  }
  /// The children that have an id, in ascending order of it, and perhaps others.
  static const std::vector<ModelPart*>& childrenById(const ModelNode& node) {
    return node.addedInOrder_ ? node.children_ : node.byId_;
  }
  /// Of a node: whether the order of its children is that of their ids.
  static bool areChildrenSorted(const ModelPart& node) {
    return static_cast<const ModelNode&>(node).addedInOrder_;
  }
  static bool isCacheable(const ModelPart& part) { return part.isCacheable(); }
  static void setCacheStamp(ModelPart& part, std::uint32_t stamp) {
    part.cacheStamp_ = stamp;
    part.valueCached_ = true;
  }
  /// Whether subscriptions to this object sleep or have slept.
  static bool hasSleeping(const ModelPart& part) { return part.hasSleeping_; }
  static void setHasSleeping(ModelPart& part) { part.hasSleeping_ = true; }
  static bool subscribable(const ModelPart& part) { return part.subscribable_; }
  static bool hasWatchHandler(const ModelPart& part) {
    return part.extras_ != nullptr && part.extras_->watchHandler != nullptr;
  }
  /// To be called before the first subscription or watch begins and after the last one has ended.
  /// Calls the watch handler if that makes a difference to it.
  static void reportWatched(ModelPart& part, bool watched) {
    if (!hasWatchHandler(part) || part.watchReported_ == watched ||
        (!watched && (subscribersOf(part) != nullptr || isInWatchedSubtree(part)))) {
      return;
    }
    const auto handler = part.extras_->watchHandler;
    (*handler)(watched);
    setWatchReported(part, watched);
  }
  /// What the watch handler knows, if there is one.
  static void setWatchReported(ModelPart& part, bool watched) {
    part.watchReported_ = watched;
    PartExtras* const extras = part.extras_.get();
    if (extras == nullptr) {
      return;
    }
    const ModelRoot* const root =
        watched && extras->watchHandler != nullptr ? part.findRoot() : nullptr;
    if (root != nullptr) {
      root->watchRegistry_->list(*extras);
    } else if (extras->listedIn != nullptr) {
      extras->listedIn->delist(*extras);
    }
  }
  /// Null if there are none.
  static PartSubscribers* subscribersOf(const ModelPart& part) {
    PartExtras* const extras = part.extras_.get();
    return extras != nullptr && !extras->subscribers.isEmpty() ? &extras->subscribers : nullptr;
  }
  /// Those of the part, made if it has none. May throw `std::bad_alloc`.
  static PartExtras& makeExtras(ModelPart& part) {
    if (part.extras_ == nullptr) {
      part.extras_ = std::make_unique<PartExtras>(part);
    }
    return *part.extras_;
  }
  /// Calls the watch handler, if it is the first one, and then `add(subscribers)`. If that throws,
  /// nothing has changed but what watch handlers were called.
  template <typename Add>
  static void addSubscriber(ModelPart& part, Add add) {
    try {
      reportWatched(part, true);
      add(makeExtras(part).subscribers);
    } catch (...) {
      reportWatched(part, false);
      freeEmptyExtras(part);
      throw;
    }
  }
  /// Calls `remove(subscribers)`, and then the watch handler if that was the last one.
  template <typename Remove>
  static void removeSubscriber(ModelPart& part, Remove remove) {
    if (PartSubscribers* const subscribers = subscribersOf(part)) {
      remove(*subscribers);
    }
    reportWatched(part, false);
    freeEmptyExtras(part);
  }
  static void freeEmptyExtras(ModelPart& part) {
    if (part.extras_ != nullptr && part.extras_->isEmpty()) {
      part.extras_ = nullptr;
    }
  }
};

}  // namespace ModelSrv::internal
