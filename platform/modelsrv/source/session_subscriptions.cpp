#include "modelsrv/source/session_subscriptions.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "modelsrv/source/out_of_memory.h"
#include "modelsrv/source/part_access.h"
#include "modelsrv/source/tree_lock.h"

namespace ModelSrv::internal {

namespace {

void removeFromPart(const Subscription& subscription) {
  PartAccess::removeSubscriber(subscription.part(), [&subscription](PartSubscribers& subscribers) {
    subscribers.remove(subscription);
  });
}

}  // namespace

SessionSubscriptions::SessionSubscriptions(EvtSrv::internal::ServerConnection& connection)
    : connection_(connection) {}

SessionSubscriptions::~SessionSubscriptions() {
  for (const auto& [part, subscription] : subscriptions_) {
    removeFromPart(subscription);
  }
  if (enlistedIn_ != nullptr) {
    enlistedIn_->remove(*this);
  }
  connection_.account().removeSubscriptions(count_);
  connection_.account().remove(held_);
}

bool SessionSubscriptions::release() {
  constexpr unsigned atOnce = 1000;
  released_ = true;
  for (unsigned i = 0; i < atOnce && !subscriptions_.empty(); ++i) {
    Subscription& subscription = subscriptions_.begin()->second;
    removeFromPart(subscription);
    partRemoved(subscription);
  }
  for (unsigned i = 0; i < atOnce && !sleeping_.isEmpty(); ++i) {
    uncount(sleeping_.removeOne());
  }
  delistIfAwake();
  return subscriptions_.empty() && sleeping_.isEmpty();
}

void SessionSubscriptions::uncount(std::size_t subscriptions) {
  count_ -= subscriptions;
  connection_.account().removeSubscriptions(subscriptions);
}

ModelRes SessionSubscriptions::add(ModelPart& part, ModelPartIndex index) {
  TreeLock::assertHeld(part);
  if (!connection_.account().addSubscription()) {
    return ModelRes_LimitReached;
  }
  ++count_;
  try {
    subscribe(part, [index](SubscribedIndices& indices) { indices.add(index); });
  } catch (...) {
    uncount(1);
    throw;
  }
  return ModelRes_Success;
}

/// The subscription to `part`, with what `addIndices` adds to it. If this throws, nothing has
/// changed.
template <typename AddIndices>
Subscription& SessionSubscriptions::subscribe(ModelPart& part, AddIndices addIndices) {
  const auto [at, isNew] = subscriptions_.try_emplace(&part, *this, part, lastSerial_ + 1);
  try {
    addIndices(at->second.indices());
    if (isNew) {
      registerWithPart(at->second);
    }
  } catch (...) {
    if (isNew) {
      subscriptions_.erase(at);
    }
    throw;
  }
  return at->second;
}

/// If this throws, nothing has changed.
void SessionSubscriptions::registerWithPart(Subscription& subscription) {
  PartAccess::addSubscriber(subscription.part(), [&subscription](PartSubscribers& subscribers) {
    subscribers.add(subscription);
  });
  ++lastSerial_;
}

ModelRes SessionSubscriptions::cancel(ModelPart& part, ModelPartIndex index) {
  TreeLock::assertHeld(part);
  const auto at = subscriptions_.find(&part);
  if (at == subscriptions_.end() || !at->second.indices().cancel(index)) {
    return ModelRes_NotSubscribed;
  }
  uncount(1);
  if (at->second.indices().isEmpty()) {
    removeFromPart(at->second);
    erase(at->second);
  }
  return ModelRes_Success;
}

ModelRes SessionSubscriptions::addSleeping(ChainView chain, ModelPartIndex index,
                                           const std::shared_ptr<SleepingSessions>& sleeping) {
  if (!connection_.account().allows(SleepingSubscriptions::bytesFor(chain)) ||
      !connection_.account().addSubscription()) {
    return ModelRes_LimitReached;
  }
  ++count_;
  try {
    if (!sleep(sleeping, [&] { return sleeping_.add(chain, index); })) {
      uncount(1);
      return ModelRes_LimitReached;
    }
  } catch (...) {
    uncount(1);
    throw;
  }
  if (!accountForMemory()) {
    closeConnection();
  }
  return ModelRes_Success;
}

ModelRes SessionSubscriptions::cancelSleeping(ChainView chain, ModelPartIndex index) {
  if (!sleeping_.cancel(chain, index)) {
    return ModelRes_NotSubscribed;
  }
  uncount(1);
  delistIfAwake();
  static_cast<void>(accountForMemory());  // it is less than before
  return ModelRes_Success;
}

/// Calls `addToSleeping`, which returns false if there is a limit. Then this session is in the
/// list of those that have sleeping subscriptions. If this throws, nothing has changed.
template <typename AddToSleeping>
bool SessionSubscriptions::sleep(const std::shared_ptr<SleepingSessions>& sleeping,
                                 AddToSleeping addToSleeping) {
  if (enlistedIn_ == nullptr) {
    sleeping->add(*this);
    enlistedIn_ = sleeping;
  }
  try {
    const bool added = addToSleeping();
    delistIfAwake();
    return added;
  } catch (...) {
    delistIfAwake();
    throw;
  }
}

void SessionSubscriptions::delistIfAwake() {
  if (sleeping_.isEmpty() && enlistedIn_ != nullptr) {
    enlistedIn_->remove(*this);
    enlistedIn_.reset();
  }
}

void SessionSubscriptions::partChanged(Subscription& subscription, ModelPartIndex index) {
  if (released_ || !markPending(subscription, index)) {
    return;
  }
  queue_.push_back(Update{&subscription.part(), subscription.serial(), index});
  connection_.eventsPending();
}

/// True if the update is to be queued; the queue has the capacity for it then. If there is no
/// memory the connection ends: a client must not miss an update without noticing.
bool SessionSubscriptions::markPending(Subscription& subscription, ModelPartIndex index) {
  bool marked = false;
  try {
    const std::size_t before = subscription.heldBytes();
    marked = subscription.markPending(index);
    elementBytes_ += subscription.heldBytes() - before;
    if (!marked) {
      return false;
    }
    reuseCapacity();
    reserveForOne(queue_);
    if (accountForMemory()) {
      return true;
    }
  } catch (const std::bad_alloc&) {
    // As if a limit was reached.
  }
  if (marked) {
    subscription.clearPending(index);
  }
  closeConnection();
  return false;
}

/// False if the account does not allow what is held now.
bool SessionSubscriptions::accountForMemory() {
  const std::size_t now = queue_.capacity() * sizeof(Update) + elementBytes_ + sleeping_.bytes();
  if (now > held_ && !connection_.account().add(now - held_)) {
    return false;
  }
  if (now < held_) {
    connection_.account().remove(held_ - now);
  }
  held_ = now;
  return true;
}

void SessionSubscriptions::partRemoved(Subscription& subscription) {
  uncount(subscription.indices().count());
  erase(subscription);
}

void SessionSubscriptions::partLeft(Subscription& subscription, const PartPath* path,
                                    const std::shared_ptr<SleepingSessions>& sleeping) {
  bool sleeps = false;
  try {
    sleeps = path != nullptr && sleep(sleeping, [&] {
               return sleeping_.add(*path, subscription.indices(), subscription.part());
             });
  } catch (const std::bad_alloc&) {
  }
  if (!sleeps) {
    uncount(subscription.indices().count());
    closeConnection();
  }
  erase(subscription);
  if (!accountForMemory()) {
    closeConnection();
  }
}

void SessionSubscriptions::partEntered(ModelPart& part, const PartPath& path) {
  SubscribedIndices indices;
  Subscription* subscription = nullptr;
  try {
    indices = sleeping_.take(path, part);
    if (indices.isEmpty()) {
      return;
    }
    subscription = &subscribe(part, [&](SubscribedIndices& awake) { awake.add(indices); });
  } catch (const std::bad_alloc&) {
    uncount(indices.count());
    closeConnection();
  }
  delistIfAwake();
  if (subscription != nullptr) {
    reportValue(part);
  }
  static_cast<void>(accountForMemory());  // `reportValue` has checked it if it is more
}

void SessionSubscriptions::reportValue(ModelPart& part) {
  const auto at = subscriptions_.find(&part);
  if (at != subscriptions_.end() && !PartAccess::isNode(part)) {
    partChanged(at->second, ModelPartIndex_All);
  }
}

/// The part no longer refers to the subscription.
void SessionSubscriptions::erase(Subscription& subscription) {
  stale_ += subscription.pendingCount();
  elementBytes_ -= subscription.heldBytes();
  subscriptions_.erase(&subscription.part());
  dropStale();
}

bool SessionSubscriptions::takeNext(ModelPart*& part, ModelPartIndex& index) {
  while (head_ != queue_.size()) {
    const Update update = queue_[head_++];
    if (head_ == queue_.size()) {
      queue_.clear();
      head_ = 0;
    }
    Subscription* subscription = find(update);
    if (subscription == nullptr) {
      --stale_;
      continue;
    }
    subscription->clearPending(update.index);
    part = update.part;
    index = update.index;
    return true;
  }
  return false;
}

Subscription* SessionSubscriptions::find(const Update& update) {
  const auto at = subscriptions_.find(update.part);
  return at != subscriptions_.end() && at->second.serial() == update.serial ? &at->second : nullptr;
}

/// Removes the stale entries once more than half of the queue is stale. A client that
/// subscribes and cancels without receiving anything must not fill the queue, and waiting until
/// half is stale keeps the cost for each entry constant.
void SessionSubscriptions::dropStale() {
  constexpr std::size_t tolerated = 64;
  if (released_) {
    return;
  }
  if (stale_ <= tolerated || stale_ * 2 <= queueLength()) {
    return;
  }
  queue_.erase(queue_.begin(), queue_.begin() + static_cast<std::ptrdiff_t>(head_));
  head_ = 0;
  std::erase_if(queue_, [this](const Update& update) { return find(update) == nullptr; });
  stale_ = 0;
}

/// Moves the queue to the beginning of its memory before it would grow.
void SessionSubscriptions::reuseCapacity() {
  if (queue_.size() < queue_.capacity() || head_ * 2 < queue_.size()) {
    return;
  }
  queue_.erase(queue_.begin(), queue_.begin() + static_cast<std::ptrdiff_t>(head_));
  head_ = 0;
}

}  // namespace ModelSrv::internal
