#include "modelsrv/source/subscription.h"

#include <algorithm>
#include <new>
#include <utility>

#include "modelsrv/source/part_access.h"
#include "modelsrv/source/server_watch.h"
#include "modelsrv/source/session_subscriptions.h"
#include "modelsrv/source/sleeping_subscriptions.h"

namespace ModelSrv::internal {

std::vector<SubscribedIndices::SubscribedIndex>::iterator SubscribedIndices::find(
    ModelPartIndex index) {
  return std::lower_bound(
      indices_.begin(), indices_.end(), index,
      [](const SubscribedIndex& entry, ModelPartIndex wanted) { return entry.index < wanted; });
}

void SubscribedIndices::add(ModelPartIndex index) {
  add(index, 1);
}

void SubscribedIndices::add(const SubscribedIndices& others) {
  if (others.indices_.size() == 1) {
    add(others.indices_.front().index, others.indices_.front().count);
    return;
  }
  SubscribedIndices sum(*this);
  for (const SubscribedIndex& entry : others.indices_) {
    sum.add(entry.index, entry.count);
  }
  std::swap(indices_, sum.indices_);
}

void SubscribedIndices::add(ModelPartIndex index, std::uint32_t count) {
  const auto at = find(index);
  if (at != indices_.end() && at->index == index) {
    at->count += count;
  } else {
    indices_.insert(at, SubscribedIndex{index, count});
  }
}

bool SubscribedIndices::cancel(ModelPartIndex index) {
  const auto at = find(index);
  if (at == indices_.end() || at->index != index) {
    return false;
  }
  if (--at->count == 0) {
    indices_.erase(at);
  }
  return true;
}

std::size_t SubscribedIndices::count() const {
  std::size_t sum = 0;
  for (const SubscribedIndex& entry : indices_) {
    sum += entry.count;
  }
  return sum;
}

bool SubscribedIndices::matches(ModelPartIndex index) const {
  if (index == ModelPartIndex_All || indices_.back().index == ModelPartIndex_All) {
    return true;
  }
  return std::binary_search(indices_.begin(), indices_.end(), SubscribedIndex{index, 0},
                            [](const SubscribedIndex& left, const SubscribedIndex& right) {
                              return left.index < right.index;
                            });
}

Subscription::Subscription(SessionSubscriptions& owner, ModelPart& part, std::uint32_t serial)
    : owner_(owner), part_(part), serial_(serial) {}

bool Subscription::markPending(ModelPartIndex index) {
  if (allPending_) {
    return false;
  }
  if (index == ModelPartIndex_All) {
    allPending_ = true;
  } else {
    if (elementsPending_.empty()) {
      elementsPending_.resize((std::size_t{PartAccess::elementCount(part_)} + 63) / 64);
    }
    if (index / 64U >= elementsPending_.size()) {
      return false;
    }
    std::uint64_t& word = elementsPending_[index / 64U];
    const std::uint64_t bit = std::uint64_t{1} << (index % 64U);
    if ((word & bit) != 0) {
      return false;
    }
    word |= bit;
  }
  ++pendingCount_;
  return true;
}

void Subscription::clearPending(ModelPartIndex index) {
  if (index == ModelPartIndex_All) {
    allPending_ = false;
  } else {
    elementsPending_[index / 64U] &= ~(std::uint64_t{1} << (index % 64U));
  }
  --pendingCount_;
}

void PartSubscribers::endSubscriptions() {
  for (Subscription* subscription : std::exchange(subscriptions_, {})) {
    subscription->owner().partRemoved(*subscription);
  }
}

void PartSubscribers::remove(const Subscription& subscription) {
  const auto at = std::find(subscriptions_.begin(), subscriptions_.end(), &subscription);
  if (at != subscriptions_.end()) {
    *at = subscriptions_.back();
    subscriptions_.pop_back();
  }
}

void PartSubscribers::removeWatch(const ServerWatch& watch) {
  const auto at = std::find(watches_.begin(), watches_.end(), &watch);
  if (at != watches_.end()) {
    *at = watches_.back();
    watches_.pop_back();
  }
}

bool PartSubscribers::watchesSubtree(const ServerWatch& watch) {
  return watch.terms().subtree;
}

void PartSubscribers::notify(ModelPart& part, ModelPartIndex index) {
  for (Subscription* subscription : subscriptions_) {
    if (subscription->indices().matches(index)) {
      subscription->owner().partChanged(*subscription, index);
    }
  }
  for (ServerWatch* watch : watches_) {
    watch->partChanged(part, index);
  }
}

void PartSubscribers::partLeft(ModelPart& part, const ModelPart& formerParent,
                               const std::shared_ptr<SleepingSessions>& sleeping) {
  PartPath path;
  bool isComplete = true;
  try {
    path = PartPath::of(part, &formerParent);
  } catch (const std::bad_alloc&) {
    isComplete = false;
  }
  // Each call destroys the subscription.
  for (Subscription* subscription : std::exchange(subscriptions_, {})) {
    subscription->owner().partLeft(*subscription, isComplete ? &path : nullptr, sleeping);
  }
  for (ServerWatch* watch : std::exchange(watches_, {})) {
    watch->topLeft(part, isComplete ? &path : nullptr);
  }
}

}  // namespace ModelSrv::internal
