#include "modelsrv/source/subscription.h"

#include <algorithm>

#include "modelsrv/source/part_access.h"
#include "modelsrv/source/session_subscriptions.h"

namespace ModelSrv::internal {

Subscription::Subscription(SessionSubscriptions& owner, ModelPart& part, std::uint32_t serial)
    : owner_(owner), part_(part), serial_(serial) {}

std::vector<Subscription::SubscribedIndex>::iterator Subscription::find(ModelPartIndex index) {
  return std::lower_bound(
      indices_.begin(), indices_.end(), index,
      [](const SubscribedIndex& entry, ModelPartIndex wanted) { return entry.index < wanted; });
}

void Subscription::add(ModelPartIndex index) {
  const auto at = find(index);
  if (at != indices_.end() && at->index == index) {
    ++at->count;
  } else {
    indices_.insert(at, SubscribedIndex{index, 1});
  }
}

bool Subscription::cancel(ModelPartIndex index) {
  const auto at = find(index);
  if (at == indices_.end() || at->index != index) {
    return false;
  }
  if (--at->count == 0) {
    indices_.erase(at);
  }
  return true;
}

std::size_t Subscription::count() const {
  std::size_t sum = 0;
  for (const SubscribedIndex& entry : indices_) {
    sum += entry.count;
  }
  return sum;
}

bool Subscription::matches(ModelPartIndex index) const {
  if (index == ModelPartIndex_All || indices_.back().index == ModelPartIndex_All) {
    return true;
  }
  return std::binary_search(indices_.begin(), indices_.end(), SubscribedIndex{index, 0},
                            [](const SubscribedIndex& left, const SubscribedIndex& right) {
                              return left.index < right.index;
                            });
}

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

PartSubscribers::~PartSubscribers() {
  for (Subscription* subscription : subscriptions_) {
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

void PartSubscribers::notify(ModelPartIndex index) {
  for (Subscription* subscription : subscriptions_) {
    if (subscription->matches(index)) {
      subscription->owner().partChanged(*subscription, index);
    }
  }
}

}  // namespace ModelSrv::internal
