#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "modelsrv/model_part.h"

namespace ModelSrv::internal {

class SessionSubscriptions;

/// The subscriptions of one client to one part: how often each index was subscribed to, and
/// which updates are pending. Guarded by the client mutex.
class Subscription {
 public:
  Subscription(SessionSubscriptions& owner, ModelPart& part, std::uint32_t serial);

  [[nodiscard]] SessionSubscriptions& owner() const { return owner_; }
  [[nodiscard]] ModelPart& part() const { return part_; }
  /// Distinguishes this object from an earlier one for the same part.
  [[nodiscard]] std::uint32_t serial() const { return serial_; }

  void add(ModelPartIndex index);
  /// Cancels one subscription to `index`; false if there is none.
  bool cancel(ModelPartIndex index);
  [[nodiscard]] bool isEmpty() const { return indices_.empty(); }
  /// The number of subscriptions, those to the same index included.
  [[nodiscard]] std::size_t count() const;

  /// Whether a change of `index` (or of the whole value) is to be reported. A subscription to
  /// the whole value matches every change; a subscription to an element matches changes of
  /// that element and of the whole value.
  [[nodiscard]] bool matches(ModelPartIndex index) const;

  /// Marks an update of `index` as pending. False if a pending update covers it already.
  bool markPending(ModelPartIndex index);
  void clearPending(ModelPartIndex index);
  [[nodiscard]] std::size_t pendingCount() const { return pendingCount_; }

 private:
  struct SubscribedIndex {
    ModelPartIndex index;
    std::uint32_t count;
  };

  std::vector<SubscribedIndex>::iterator find(ModelPartIndex index);

  SessionSubscriptions& owner_;
  ModelPart& part_;
  std::uint32_t serial_;
  bool allPending_ = false;
  std::size_t pendingCount_ = 0;
  std::vector<SubscribedIndex> indices_;  ///< ascending, so `ModelPartIndex_All` is last
  /// One bit for each element. Empty until the first change of a single element.
  std::vector<std::uint64_t> elementsPending_;
};

/// The clients that subscribed to one part. A part has this object only while there is at least
/// one; its destructor ends their subscriptions. Guarded by the client mutex.
class PartSubscribers {
 public:
  PartSubscribers() = default;
  ~PartSubscribers();
  PartSubscribers(const PartSubscribers&) = delete;
  PartSubscribers& operator=(const PartSubscribers&) = delete;

  void add(Subscription& subscription) { subscriptions_.push_back(&subscription); }
  void remove(const Subscription& subscription);
  [[nodiscard]] bool isEmpty() const { return subscriptions_.empty(); }

  /// Queues an update of `index` for each client that subscribed to it.
  void notify(ModelPartIndex index);

 private:
  std::vector<Subscription*> subscriptions_;
};

}  // namespace ModelSrv::internal
