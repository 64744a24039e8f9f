#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "modelsrv/model_part.h"

namespace ModelSrv::internal {

class SessionSubscriptions;

/// One connection's interest in one part: which indices it wants, how often it
/// asked for each, and which updates wait to be taken. Guarded by the client
/// mutex.
class Subscription {
 public:
  Subscription(SessionSubscriptions& owner, ModelPart& part, std::uint32_t serial);

  [[nodiscard]] SessionSubscriptions& owner() const { return owner_; }
  [[nodiscard]] ModelPart& part() const { return part_; }
  /// Tells this subscription from an earlier one of the same part.
  [[nodiscard]] std::uint32_t serial() const { return serial_; }

  void add(ModelPartIndex index);
  /// Takes one subscription of `index` back; false where there is none.
  bool take(ModelPartIndex index);
  [[nodiscard]] bool isEmpty() const { return interests_.empty(); }
  /// How many subscriptions are counted here.
  [[nodiscard]] std::size_t count() const;

  /// Whether a change of `index` (or of the whole value) is to be told: a
  /// subscription of all wants every change, one of an element that element's and
  /// the whole value's.
  [[nodiscard]] bool wants(ModelPartIndex index) const;

  /// Marks an update of `index` as waiting; false where one that tells as much
  /// waits already.
  bool markPending(ModelPartIndex index);
  void clearPending(ModelPartIndex index);
  [[nodiscard]] std::size_t pendingCount() const { return pendingCount_; }

 private:
  struct Interest {
    ModelPartIndex index;
    std::uint32_t count;
  };

  std::vector<Interest>::iterator find(ModelPartIndex index);

  SessionSubscriptions& owner_;
  ModelPart& part_;
  std::uint32_t serial_;
  bool allPending_ = false;
  std::size_t pendingCount_ = 0;
  std::vector<Interest> interests_;  ///< ascending; that of all comes last
  /// One bit an element; empty until the first change of a single element.
  std::vector<std::uint64_t> elementsPending_;
};

/// Everyone who subscribed to one part. Exists only while there is somebody;
/// destroying it ends their subscriptions.
class PartSubscribers {
 public:
  PartSubscribers() = default;
  ~PartSubscribers();
  PartSubscribers(const PartSubscribers&) = delete;
  PartSubscribers& operator=(const PartSubscribers&) = delete;

  void add(Subscription& subscription) { subscriptions_.push_back(&subscription); }
  void remove(const Subscription& subscription);
  [[nodiscard]] bool isEmpty() const { return subscriptions_.empty(); }

  /// Queues an update for everyone who wants to know of `index`.
  void changed(ModelPartIndex index);

 private:
  std::vector<Subscription*> subscriptions_;
};

}  // namespace ModelSrv::internal
