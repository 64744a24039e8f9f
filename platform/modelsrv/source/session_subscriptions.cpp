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
  std::unique_ptr<PartSubscribers>& subscribers = PartAccess::subscribers(subscription.part());
  subscribers->remove(subscription);
  if (subscribers->isEmpty()) {
    subscribers.reset();
  }
}

}  // namespace

SessionSubscriptions::SessionSubscriptions(EvtSrv::internal::ServerConnection& connection)
    : connection_(connection) {}

SessionSubscriptions::~SessionSubscriptions() {
  for (const auto& [part, subscription] : subscriptions_) {
    removeFromPart(subscription);
  }
}

ModelRes SessionSubscriptions::add(ModelPart& part, ModelPartIndex index) {
  TreeLock::assertHeld(part);
  if (count_ >= maxSubscriptions) {
    return ModelRes_LimitReached;
  }
  const auto [at, isNew] = subscriptions_.try_emplace(&part, *this, part, lastSerial_ + 1);
  try {
    at->second.add(index);
    if (isNew) {
      registerWithPart(at->second);
    }
  } catch (...) {
    if (isNew) {
      subscriptions_.erase(at);
    }
    throw;
  }
  ++count_;
  return ModelRes_Success;
}

/// If this throws, nothing has changed.
void SessionSubscriptions::registerWithPart(Subscription& subscription) {
  auto& subscribers = PartAccess::subscribers(subscription.part());
  auto created = subscribers == nullptr ? std::make_unique<PartSubscribers>() : nullptr;
  (created != nullptr ? created : subscribers)->add(subscription);
  if (created != nullptr) {
    subscribers = std::move(created);
  }
  ++lastSerial_;
}

ModelRes SessionSubscriptions::cancel(ModelPart& part, ModelPartIndex index) {
  TreeLock::assertHeld(part);
  const auto at = subscriptions_.find(&part);
  if (at == subscriptions_.end() || !at->second.cancel(index)) {
    return ModelRes_NotSubscribed;
  }
  --count_;
  if (at->second.isEmpty()) {
    removeFromPart(at->second);
    partRemoved(at->second);
  }
  return ModelRes_Success;
}

void SessionSubscriptions::partChanged(Subscription& subscription, ModelPartIndex index) {
  if (!markPending(subscription, index)) {
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
    marked = subscription.markPending(index);
    if (marked) {
      reuseCapacity();
      reserveForOne(queue_);
    }
    return marked;
  } catch (const std::bad_alloc&) {
    if (marked) {
      subscription.clearPending(index);
    }
    connection_.closeOnNextDispatch();
    return false;
  }
}

void SessionSubscriptions::partRemoved(Subscription& subscription) {
  count_ -= subscription.count();
  stale_ += subscription.pendingCount();
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
