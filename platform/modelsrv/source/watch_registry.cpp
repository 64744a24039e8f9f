#include "modelsrv/source/watch_registry.h"

#include <limits>
#include <new>

#include "modelsrv/source/part_access.h"
#include "modelsrv/source/server_watch.h"
#include "modelsrv/source/sleeping_subscriptions.h"

namespace ModelSrv::internal {

namespace {

// For how long the handlers of parts that no client watches any more are called at once.
constexpr std::int64_t unwatchedNs = 500'000;

/// Calls `visit` for each watch of a subtree that has `part`, from `part` itself up.
template <typename Visit>
void forEachSubtreeWatch(const ModelPart* part, Visit visit) {
  for (const ModelPart* at = part; at != nullptr; at = PartAccess::parent(*at)) {
    if (const PartSubscribers* const subscribers = PartAccess::subscribersOf(*at)) {
      subscribers->forEachSubtreeWatch(visit);
    }
  }
}

/// Notifies the watches that begin below `part`, which does not hide it any more. What is deeper
/// than `levels` has no watches.
void reportShownBelow(const ModelPart& part, std::size_t levels = ModelDepth_Max) {
  if (levels == 0) {
    return;
  }
  for (ModelPart* const child : PartAccess::allChildren(part)) {
    if (const PartSubscribers* const subscribers = PartAccess::subscribersOf(*child)) {
      subscribers->forEachWatch([child](ServerWatch& watch) { watch.partShown(*child); });
    }
    reportShownBelow(*child, levels - 1);
  }
}

}  // namespace

bool isInWatchedSubtree(const ModelPart& part) {
  if (!WatchCounts::anySubtree()) {
    return false;
  }
  for (const ModelPart* at = PartAccess::parent(part); at != nullptr;
       at = PartAccess::parent(*at)) {
    const PartSubscribers* const subscribers = PartAccess::subscribersOf(*at);
    if (subscribers != nullptr && subscribers->hasSubtreeWatch()) {
      return true;
    }
  }
  return false;
}

void notifySubtreeWatches(ModelPart& part, ModelPartIndex index) {
  forEachSubtreeWatch(PartAccess::parent(part),
                      [&](ServerWatch& watch) { watch.partChanged(part, index); });
}

void reportSubscribable(ModelPart& part) {
  if (WatchCounts::anySubtree() && !PartAccess::isNode(part)) {
    forEachSubtreeWatch(PartAccess::parent(part),
                        [&part](ServerWatch& watch) { watch.partShown(part); });
  }
}

PartExtras::~PartExtras() {
  if (listedIn != nullptr) {
    listedIn->delist(*this);
  }
}

WatchRegistry::~WatchRegistry() {
  while (PartExtras* const first = listed_.first()) {
    delist(*first);
  }
}

void WatchRegistry::list(PartExtras& extras) {
  if (extras.listedIn == nullptr) {
    extras.listedIn = this;
    listed_.push(extras);
    ++listedCount_;
  }
}

void WatchRegistry::delist(PartExtras& extras) {
  extras.listedIn = nullptr;
  listed_.remove(extras);
  --listedCount_;
}

void WatchRegistry::subtreeUnwatched() {
  toCheck_ = listedCount_;
  reportSomeUnwatched(core_.system().nowNs() + unwatchedNs);
}

void WatchRegistry::reportAllUnwatched() {
  toCheck_ = listedCount_;
  reportSomeUnwatched(std::numeric_limits<std::int64_t>::max());
}

bool WatchRegistry::runDeferred() {
  reportSomeUnwatched(core_.system().nowNs() + unwatchedNs);
  return true;
}

void WatchRegistry::reportSomeUnwatched(std::int64_t untilNs) {
  core_.clientMutex().assertHeld();
  while (toCheck_ > 0 && !listed_.isEmpty()) {
    // A handler may end the service, which checks all.
    --toCheck_;
    PartExtras& first = *listed_.first();
    listed_.remove(first);
    listed_.push(first);
    PartAccess::reportWatched(first.part, false);
    if (toCheck_ > 0 && core_.system().nowNs() >= untilNs) {
      core_.defer(*this);
      return;
    }
  }
  toCheck_ = 0;
}

void WatchRegistry::partEntered(ModelPart& part, std::span<ModelPart* const> descendants) {
  ++structureVersion_;
  if (WatchCounts::anySubtree()) {
    forEachSubtreeWatch(PartAccess::parent(part),
                        [&part](ServerWatch& watch) { watch.partEntered(part); });
  }
  if (!sleeping_.empty()) {
    wakeUp(part);
    for (ModelPart* const descendant : descendants) {
      wakeUp(*descendant);
    }
  }
}

void WatchRegistry::partLeft(const ModelPart& part, ModelPart& formerParent,
                             std::span<ModelPart* const> descendants) {
  ++structureVersion_;
  if (WatchCounts::anySubtree()) {
    forEachSubtreeWatch(&formerParent, [&](ServerWatch& watch) {
      watch.partLeft(part, formerParent, descendants);
    });
  }
}

void WatchRegistry::nodeChanges(ModelPart& node) {
  if (!WatchCounts::any()) {
    return;
  }
  ++structureVersion_;
  // What it begins to hide is noticed when it is to be reported.
  if (PartAccess::asNode(node) != nullptr) {
    return;
  }
  forEachSubtreeWatch(&node, [&node](ServerWatch& watch) { watch.partShown(node); });
  reportShownBelow(node);
}

void WatchRegistry::addSleeping(const std::vector<ModelPartId>& chain, ServerWatch& watch) {
  sleeping_.emplace(chain, &watch);
}

void WatchRegistry::removeSleeping(const std::vector<ModelPartId>& chain,
                                   const ServerWatch& watch) {
  const auto [first, last] = sleeping_.equal_range(chain);
  for (auto at = first; at != last; ++at) {
    if (at->second == &watch) {
      sleeping_.erase(at);
      return;
    }
  }
}

void WatchRegistry::wakeUp(ModelPart& part) {
  try {
    chainOf(part, chain_);
    if (!sleeping_.contains(chain_)) {
      return;
    }
    const PartPath path = PartPath::of(part);
    // Each that wakes up leaves the range.
    for (auto at = sleeping_.lower_bound(path.chain);
         at != sleeping_.end() && at->first == path.chain;) {
      ServerWatch& watch = *(at++)->second;
      if (watch.waitsFor(part, path)) {
        watch.topEntered(part);
      }
    }
  } catch (const std::bad_alloc&) {
    for (const auto& [chain, watch] : sleeping_) {
      watch->closeConnection();
    }
  }
}

}  // namespace ModelSrv::internal
