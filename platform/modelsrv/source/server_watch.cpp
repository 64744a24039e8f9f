#include "modelsrv/source/server_watch.h"

#include <algorithm>
#include <new>
#include <utility>

#include "modelsrv/source/part_access.h"
#include "modelsrv/source/session_watches.h"

namespace ModelSrv::internal {

namespace {

// Beyond these limits of what is pending of the structure, the watch begins again.
constexpr std::size_t maxStructureChanges = 1024;
constexpr std::size_t maxStructureBytes = std::size_t{256} * 1024;

/// Sets `ids` to the chain of `part` below `top`; false if it is not there. If `formerParent` is
/// not null, `part` has just been removed from it.
bool idsBelow(const ModelPart& top, const ModelPart& part, const ModelPart* formerParent,
              std::vector<ModelPartId>& ids) {
  ids.clear();
  for (const ModelPart* at = &part; at != &top;) {
    ids.push_back(at->id());
    at = formerParent != nullptr ? std::exchange(formerParent, nullptr) : PartAccess::parent(*at);
    if (at == nullptr) {
      return false;
    }
  }
  std::reverse(ids.begin(), ids.end());
  return true;
}

/// Whether `part` is `top` or below it.
bool isAtOrBelow(const ModelPart& top, const ModelPart* part) {
  while (part != nullptr && part != &top) {
    part = PartAccess::parent(*part);
  }
  return part != nullptr;
}

}  // namespace

ServerWatch::ServerWatch(SessionWatches& owner, const WatchTerms& terms,
                         std::shared_ptr<WatchRegistry> registry)
    : owner_(owner), terms_(terms), registry_(std::move(registry)) {}

ServerWatch::~ServerWatch() {
  end();
}

void ServerWatch::end() {
  ended_ = true;
  if (top_ != nullptr) {
    delist();
  }
  if (std::exchange(sleeps_, false)) {
    registry_->removeSleeping(sleepsAt_, *this);
  }
  owner_.account().remove(std::exchange(accounted_, 0) + std::exchange(ownBytes_, 0));
}

std::size_t ServerWatch::bytesOf(const WatchTerms& terms) {
  constexpr std::size_t ofContainers = 256;
  constexpr std::size_t ofCursor = 2048;
  return sizeof(ServerWatch) + ofContainers + (terms.subtree ? ofCursor : 0);
}

bool ServerWatch::accountForItself() {
  const std::size_t bytes = bytesOf(terms_);
  if (!owner_.account().add(bytes)) {
    return false;
  }
  ownBytes_ = bytes;
  return true;
}

void ServerWatch::watch(ModelPart& top) {
  enlist(top);
}

void ServerWatch::waitAt(ChainView chain) {
  sleepsAt_.assign(chain.begin(), chain.end());
  registry_->addSleeping(sleepsAt_, *this);
  sleeps_ = true;
  accountForMemory();
}

/// If it throws, nothing has changed but what watch handlers were called.
void ServerWatch::enlist(ModelPart& top) {
  // The first walk reports the parts below as watched, a few in each dispatch.
  PartAccess::addSubscriber(top,
                            [this](PartSubscribers& subscribers) { subscribers.addWatch(*this); });
  top_ = &top;
  ++WatchCounts::watches;
  if (terms_.subtree) {
    ++WatchCounts::subtrees;
  }
}

void ServerWatch::delist() {
  ModelPart& top = *std::exchange(top_, nullptr);
  --WatchCounts::watches;
  PartAccess::removeSubscriber(
      top, [this](PartSubscribers& subscribers) { subscribers.removeWatch(*this); });
  if (!terms_.subtree) {
    return;
  }
  --WatchCounts::subtrees;
  registry_->subtreeUnwatched();
}

void ServerWatch::closeConnection() {
  owner_.closeConnection();
}

void ServerWatch::pendingAdded() {
  if (!ended_) {
    owner_.pendingAdded(*this);
  }
}

/// Begins again if the account does not allow what is pending.
void ServerWatch::accountForMemory() {
  if (ended_) {
    return;
  }
  const std::size_t now = values_.bytes() + structureBytes_ +
                          sleepsAt_.capacity() * sizeof(ModelPartId) +
                          (sleepNames_.has_value() ? sleepNames_->size() : 0);
  if (now > accounted_ && !owner_.account().add(now - accounted_)) {
    restart();
    return;
  }
  if (now < accounted_) {
    owner_.account().remove(accounted_ - now);
  }
  accounted_ = now;
}

/// Reports everything anew instead of what is pending.
void ServerWatch::restart() {
  values_.clear();
  structure_.clear();
  structureBytes_ = 0;
  walks_.clear();
  cursor_ = {};
  phase_ = Phase::begin;
  owner_.account().remove(accounted_);
  accounted_ = 0;
  pendingAdded();
}

bool ServerWatch::isInQueuedWalk(const ModelPart& part, const ModelPart* formerParent) const {
  if (walks_.empty()) {
    return false;
  }
  for (const ModelPart* at = &part; at != nullptr;) {
    if (walks_.contains(at)) {
      return true;
    }
    at = formerParent != nullptr ? std::exchange(formerParent, nullptr) : PartAccess::parent(*at);
  }
  return false;
}

/// Whether the client has heard of `part`, so that its changes are to be reported.
bool ServerWatch::isReported(const ModelPart& part, const ModelPart* formerParent) {
  if (phase_ == Phase::begin || isInQueuedWalk(part, formerParent)) {
    return false;
  }
  if (cursor_.top() == nullptr) {
    return true;
  }
  std::vector<ModelPartId>& ids = owner_.share().ids;
  return !idsBelow(*cursor_.top(), part, formerParent, ids) || cursor_.hasPassed(ids);
}

/// The same of `part`, which has just been removed from `formerParent`.
bool ServerWatch::wasReported(const ModelPart& part, const ModelPart& formerParent) {
  const auto walk = walks_.find(&part);
  if (walk == walks_.end()) {
    return isReported(part, &formerParent);
  }
  // A walk from further up reports the parts that are there then.
  return walk->second && !isInQueuedWalk(formerParent, nullptr);
}

void ServerWatch::partChanged(ModelPart& part, ModelPartIndex index) {
  if (terms_.index != ModelPartIndex_All) {
    if (index != ModelPartIndex_All && index != terms_.index) {
      return;
    }
    index = terms_.index;
  }
  const bool isOther = &part != top_;
  if (owner_.isReleased() || (isOther && !PartAccess::subscribable(part))) {
    return;
  }
  bool queued = false;
  try {
    if (!isReported(part, nullptr)) {
      return;
    }
    queued = values_.add(part, index, owner_.share().system.realTimeNs());
  } catch (const std::bad_alloc&) {
    restart();
    return;
  }
  accountForMemory();
  if (queued) {
    pendingAdded();
  }
}

void ServerWatch::addStructure(StructureChange change) {
  const std::size_t bytes = bytesOfStructureChange + change.chain.capacity() * sizeof(ModelPartId);
  if (structure_.size() >= maxStructureChanges || structureBytes_ + bytes > maxStructureBytes) {
    restart();
    return;
  }
  structure_.push_back(std::move(change));
  structureBytes_ += bytes;
  accountForMemory();
  pendingAdded();
}

void ServerWatch::partEntered(ModelPart& part) {
  if (PartAccess::isPublished(part)) {
    addWalk(part, false);
  }
}

void ServerWatch::partShown(ModelPart& part) {
  addWalk(part, true);
}

/// Has `part` reported with its descendants, which is necessary if the client should know of it.
void ServerWatch::addWalk(ModelPart& part, bool isAgain) {
  if (owner_.isReleased()) {
    return;
  }
  try {
    if (isReported(part, nullptr)) {
      walks_.emplace(&part, isAgain);
      addStructure({&part, {}});
    }
  } catch (const std::bad_alloc&) {
    restart();
  }
}

void ServerWatch::partLeft(const ModelPart& part, const ModelPart& formerParent,
                           std::span<ModelPart* const> descendants) {
  try {
    const bool reported = wasReported(part, formerParent);
    dropPending(part, descendants);
    std::vector<ModelPartId> chain;
    if (reported && !owner_.isReleased()) {
      chain = PartPath::of(part, &formerParent).chain;
    }
    // No client has heard of a part without an id.
    if (!chain.empty() && std::find(chain.begin(), chain.end(), ModelPartId_Void) == chain.end()) {
      addStructure({nullptr, std::move(chain)});
    }
  } catch (const std::bad_alloc&) {
    restart();
  }
}

/// Drops what is pending of parts that have left the tree.
void ServerWatch::dropPending(const ModelPart& part, std::span<ModelPart* const> descendants) {
  values_.drop(part);
  if (values_.parts() != 0) {
    for (const ModelPart* const descendant : descendants) {
      values_.drop(*descendant);
    }
  }
  if (cursor_.top() != nullptr && isAtOrBelow(part, cursor_.top())) {
    cursor_.end();
  }
  std::erase_if(structure_, [&](const StructureChange& change) {
    const bool drops = change.part != nullptr && isAtOrBelow(part, change.part);
    if (drops) {
      walks_.erase(change.part);
      structureBytes_ -= bytesOfStructureChange;
    }
    return drops;
  });
}

void ServerWatch::topLeft(ModelPart& part, const PartPath* path) {
  top_ = nullptr;
  --WatchCounts::watches;
  if (terms_.subtree) {
    --WatchCounts::subtrees;
  }
  const Phase before = phase_;
  restart();
  if (path == nullptr) {
    closeConnection();
    return;
  }
  try {
    sleepsAt_ = path->chain;
    sleepNames_ = path->names;
    sleepingPart_ = &part;
    registry_->addSleeping(sleepsAt_, *this);
    sleeps_ = true;
    PartAccess::setHasSleeping(part);
    if (before != Phase::begin) {
      phase_ = before == Phase::running ? Phase::running : Phase::complete;
      addStructure({nullptr, sleepsAt_});
    }
    accountForMemory();
  } catch (const std::bad_alloc&) {
    closeConnection();
  }
}

bool ServerWatch::waitsFor(const ModelPart& part, const PartPath& path) const {
  const bool isSamePart = sleepingPart_ == &part && PartAccess::hasSleeping(part);
  return (!sleepNames_.has_value() || *sleepNames_ == path.names) &&
         (isSamePart || PartAccess::subscribable(part));
}

void ServerWatch::topEntered(ModelPart& part) {
  registry_->removeSleeping(sleepsAt_, *this);
  sleeps_ = false;
  sleepsAt_ = {};
  sleepNames_.reset();
  try {
    enlist(part);
    addWalk(part, false);
  } catch (const std::bad_alloc&) {
    closeConnection();
  }
}

}  // namespace ModelSrv::internal
