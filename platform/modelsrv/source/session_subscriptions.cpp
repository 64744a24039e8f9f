#include "modelsrv/source/session_subscriptions.h"

#include <algorithm>
#include <memory>
#include <new>
#include <tuple>
#include <utility>

#include "modelsrv/source/part_access.h"
#include "modelsrv/source/reserve_for_one.h"

namespace ModelSrv::internal {

SessionSubscriptions::SessionSubscriptions(EvtSrv::internal::ServerConnection& connection)
    : connection_(connection) {}

SessionSubscriptions::~SessionSubscriptions() {
  for (auto& [part, subscription] : subscriptions_) {
    auto& subscribers = PartAccess::subscribers(*part);
    subscribers->remove(subscription);
    if (subscribers->isEmpty()) {
      subscribers.reset();
    }
  }
}

ModelRes SessionSubscriptions::add(ModelPart& part, ModelPartIndex index) {
  if (count_ >= maxSubscriptions) {
    return ModelRes_LimitReached;
  }
  const auto [at, isNew] = subscriptions_.try_emplace(&part, *this, part, lastSerial_ + 1);
  try {
    at->second.add(index);
    if (isNew) {
      subscribe(at->second);
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

/// Has the part tell of its changes. Where that throws, nothing has changed.
void SessionSubscriptions::subscribe(Subscription& subscription) {
  auto& subscribers = PartAccess::subscribers(subscription.part());
  auto made = subscribers == nullptr ? std::make_unique<PartSubscribers>() : nullptr;
  (made != nullptr ? made : subscribers)->add(subscription);
  if (made != nullptr) {
    subscribers = std::move(made);
  }
  ++lastSerial_;
}

ModelRes SessionSubscriptions::take(ModelPart& part, ModelPartIndex index) {
  const auto at = subscriptions_.find(&part);
  if (at == subscriptions_.end() || !at->second.take(index)) {
    return ModelRes_NotSubscribed;
  }
  --count_;
  if (at->second.isEmpty()) {
    auto& subscribers = PartAccess::subscribers(part);
    subscribers->remove(at->second);
    if (subscribers->isEmpty()) {
      subscribers.reset();
    }
    forget(at->second);
  }
  return ModelRes_Success;
}

void SessionSubscriptions::changed(Subscription& subscription, ModelPartIndex index) {
  if (!markPending(subscription, index)) {
    return;
  }
  queue_.push_back(Update{&subscription.part(), subscription.serial(), index});
  connection_.eventsPending();
}

/// Whether the update is to be queued; there is room for it then. A client that
/// cannot be told must not believe that nothing has happened.
bool SessionSubscriptions::markPending(Subscription& subscription, ModelPartIndex index) {
  bool marked = false;
  try {
    marked = subscription.markPending(index);
    if (marked) {
      reclaim();
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

void SessionSubscriptions::forget(Subscription& subscription) {
  count_ -= subscription.count();
  stale_ += subscription.pendingCount();
  subscriptions_.erase(&subscription.part());
  dropStale();
}

bool SessionSubscriptions::next(ModelPart*& part, ModelPartIndex& index) {
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

/// A client that subscribes, cancels and takes nothing must not fill the queue
/// with what has ended; sweeping when half of it has costs each entry little.
void SessionSubscriptions::dropStale() {
  constexpr std::size_t tolerated = 64;
  if (stale_ <= tolerated || stale_ * 2 <= waiting()) {
    return;
  }
  queue_.erase(queue_.begin(), queue_.begin() + static_cast<std::ptrdiff_t>(head_));
  head_ = 0;
  std::erase_if(queue_, [this](const Update& update) { return find(update) == nullptr; });
  stale_ = 0;
}

/// Uses the room of what has been taken again before the queue grows.
void SessionSubscriptions::reclaim() {
  if (queue_.size() < queue_.capacity() || head_ * 2 < queue_.size()) {
    return;
  }
  queue_.erase(queue_.begin(), queue_.begin() + static_cast<std::ptrdiff_t>(head_));
  head_ = 0;
}

}  // namespace ModelSrv::internal
