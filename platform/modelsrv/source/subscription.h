#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "modelsrv/model_part.h"

namespace ModelSrv::internal {

class ServerWatch;
class SessionSubscriptions;
class SleepingSessions;

/// How often one client has subscribed to each index of one part.
class SubscribedIndices {
 public:
  void add(ModelPartIndex index);
  /// Adds all of `others`. If it throws `std::bad_alloc`, nothing has changed.
  void add(const SubscribedIndices& others);
  /// Cancels one subscription to `index`; false if there is none.
  bool cancel(ModelPartIndex index);
  [[nodiscard]] bool isEmpty() const { return indices_.empty(); }
  /// The number of subscriptions, those to the same index included.
  [[nodiscard]] std::size_t count() const;
  /// The memory that the indices use, and that of one, in bytes.
  [[nodiscard]] std::size_t bytes() const { return indices_.size() * bytesOfOne; }
  static constexpr std::size_t bytesOfOne = 8;

  /// Whether a change of `index` (or of the whole value) is to be reported. A subscription to
  /// the whole value matches every change; a subscription to an element matches changes of
  /// that element and of the whole value. There must be at least one.
  [[nodiscard]] bool matches(ModelPartIndex index) const;

 private:
  struct SubscribedIndex {
    ModelPartIndex index;
    std::uint32_t count;
  };
  static_assert(sizeof(SubscribedIndex) == bytesOfOne);

  void add(ModelPartIndex index, std::uint32_t count);
  std::vector<SubscribedIndex>::iterator find(ModelPartIndex index);

  std::vector<SubscribedIndex> indices_;  ///< ascending, so `ModelPartIndex_All` is last
};

/// The subscriptions of one client to one part: how often each index was subscribed to, and
/// which updates are pending. Guarded by the client mutex.
class Subscription {
 public:
  Subscription(SessionSubscriptions& owner, ModelPart& part, std::uint32_t serial);

  [[nodiscard]] SessionSubscriptions& owner() const { return owner_; }
  [[nodiscard]] ModelPart& part() const { return part_; }
  /// Distinguishes this object from an earlier one for the same part.
  [[nodiscard]] std::uint32_t serial() const { return serial_; }

  [[nodiscard]] SubscribedIndices& indices() { return indices_; }
  [[nodiscard]] const SubscribedIndices& indices() const { return indices_; }

  /// Marks an update of `index` as pending. False if a pending update covers it already.
  bool markPending(ModelPartIndex index);
  void clearPending(ModelPartIndex index);
  [[nodiscard]] std::size_t pendingCount() const { return pendingCount_; }
  /// The bytes of memory that its pending elements take.
  [[nodiscard]] std::size_t heldBytes() const {
    return elementsPending_.capacity() * sizeof(std::uint64_t);
  }

 private:
  SessionSubscriptions& owner_;
  ModelPart& part_;
  std::uint32_t serial_;
  bool allPending_ = false;
  std::size_t pendingCount_ = 0;
  SubscribedIndices indices_;
  /// One bit for each element. Empty until the first change of a single element.
  std::vector<std::uint64_t> elementsPending_;
};

/// The clients that subscribed to one part, and the watches that begin there. The destructor ends
/// the subscriptions. Guarded by the client mutex.
class PartSubscribers {
 public:
  PartSubscribers() = default;
  ~PartSubscribers() { endSubscriptions(); }
  PartSubscribers(const PartSubscribers&) = delete;
  PartSubscribers& operator=(const PartSubscribers&) = delete;

  void add(Subscription& subscription) { subscriptions_.push_back(&subscription); }
  void remove(const Subscription& subscription);
  void addWatch(ServerWatch& watch) { watches_.push_back(&watch); }
  void removeWatch(const ServerWatch& watch);
  [[nodiscard]] bool isEmpty() const { return subscriptions_.empty() && watches_.empty(); }

  /// Queues an update of `index` of `part`, whose subscribers these are, for each client that
  /// subscribed to it or watches it.
  void notify(ModelPart& part, ModelPartIndex index);

  [[nodiscard]] bool hasSubtreeWatch() const {
    return std::any_of(watches_.begin(), watches_.end(),
                       [](const ServerWatch* watch) { return watchesSubtree(*watch); });
  }
  /// Calls `visit` for each watch that begins here.
  template <typename Visit>
  void forEachWatch(Visit visit) const {
    for (ServerWatch* const watch : watches_) {
      visit(*watch);
    }
  }
  /// Calls `visit` for each watch of a subtree that begins here.
  template <typename Visit>
  void forEachSubtreeWatch(Visit visit) const {
    for (ServerWatch* const watch : watches_) {
      if (watchesSubtree(*watch)) {
        visit(*watch);
      }
    }
  }

  /// `part`, whose subscribers these are, has left the tree of the root that has `sleeping`: it,
  /// or a part above it, was removed from `formerParent`. Its subscriptions sleep until it is
  /// back; this object has none then. Does not throw: a session for which there is no memory is
  /// closed.
  void partLeft(ModelPart& part, const ModelPart& formerParent,
                const std::shared_ptr<SleepingSessions>& sleeping);
  void endSubscriptions();

 private:
  static bool watchesSubtree(const ServerWatch& watch);

  std::vector<Subscription*> subscriptions_;
  std::vector<ServerWatch*> watches_;
};

}  // namespace ModelSrv::internal
