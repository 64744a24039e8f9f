#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "evtsrv/source/server_session.h"
#include "modelsrv/model_part.h"
#include "modelsrv/source/id_chain.h"
#include "modelsrv/source/sleeping_subscriptions.h"
#include "modelsrv/source/subscription.h"

namespace ModelSrv::internal {

/// The subscriptions of one client in a server, and the queue of its pending updates: at most
/// one for each part and index, in the order of the first change. Independent of the encoding
/// of messages. Guarded by the client mutex.
///
/// If a part leaves the tree its subscriptions sleep: they are kept and counted, and wake up when
/// a part of the same id chain and name, below nodes of the same names, enters the tree, if it is
/// subscribable or the same object.
class SessionSubscriptions {
 public:
  /// `connection` is notified when the queue has a new update. It must outlive this object.
  explicit SessionSubscriptions(EvtSrv::internal::ServerConnection& connection);
  ~SessionSubscriptions();
  SessionSubscriptions(const SessionSubscriptions&) = delete;
  SessionSubscriptions& operator=(const SessionSubscriptions&) = delete;

  /// Adds one subscription. `ModelRes_LimitReached` if the account of the connection allows no
  /// more.
  ModelRes add(ModelPart& part, ModelPartIndex index);

  /// Queues an update of the whole value of `part`, which this client is subscribed to; none for a
  /// node. Does not throw, as `partChanged`.
  void reportValue(ModelPart& part);

  /// Cancels one subscription; `ModelRes_NotSubscribed` if there is none. With the last
  /// subscription to a part its pending updates are dropped.
  ModelRes cancel(ModelPart& part, ModelPartIndex index);

  /// Adds a sleeping subscription, which wakes up when a subscribable part enters the tree at
  /// `chain`, and is of that part from then on. `sleeping` belongs to the root of the tree.
  /// `ModelRes_LimitReached` if there are too many, or they use too much memory.
  ModelRes addSleeping(ChainView chain, ModelPartIndex index,
                       const std::shared_ptr<SleepingSessions>& sleeping);

  /// Cancels one sleeping subscription; `ModelRes_NotSubscribed` if there is none.
  ModelRes cancelSleeping(ChainView chain, ModelPartIndex index);

  /// Removes the oldest pending update from the queue; false if there is none.
  bool takeNext(ModelPart*& part, ModelPartIndex& index);

  /// Ends some subscriptions, sleeping ones too, for a connection that has ended; true if none is
  /// left. The work of one call is bounded.
  bool release();

  /// The number of subscriptions, sleeping ones included.
  [[nodiscard]] std::size_t count() const { return count_; }
  /// Whether there may be sleeping subscriptions to a part at `chain`.
  [[nodiscard]] bool sleepsAt(const std::vector<ModelPartId>& chain) const {
    return sleeping_.contains(chain);
  }
  /// The number of pending updates.
  [[nodiscard]] std::size_t pendingCount() const { return queueLength() - stale_; }
  /// The number of entries in the queue, including stale ones (of subscriptions that have
  /// ended): at most twice the number of pending updates plus a constant.
  [[nodiscard]] std::size_t queueLength() const { return queue_.size() - head_; }

  // Called by `PartSubscribers`.

  /// `index` of the subscribed part has changed, and the subscription matches it. Does not
  /// throw: if there is no memory for the update, or the account of the connection allows no
  /// more of it, the connection is closed.
  void partChanged(Subscription& subscription, ModelPartIndex index);
  /// The part, which is at `path` (null: there was no memory for it), has left the tree and no
  /// longer refers to the subscription, which ends: its indices sleep. Does not throw: if there is
  /// no memory for that the connection is closed.
  void partLeft(Subscription& subscription, const PartPath* path,
                const std::shared_ptr<SleepingSessions>& sleeping);
  /// The part no longer refers to the subscription, which ends for good.
  void partRemoved(Subscription& subscription);

  // Called by `SleepingSessions`.

  /// `part` has entered the tree at `path`: wakes up what waits for it (see
  /// `SleepingSubscriptions::take`), and queues an update, since its value may differ from the last
  /// one of the former part. Does not throw, as above.
  void partEntered(ModelPart& part, const PartPath& path);
  /// There is no memory to do that.
  void closeConnection() { connection_.closeOnNextDispatch(); }

 private:
  struct Update {
    ModelPart* part;  ///< used as a key only: the part may have been destroyed
    std::uint32_t serial;
    ModelPartIndex index;
  };

  template <typename AddIndices>
  Subscription& subscribe(ModelPart& part, AddIndices addIndices);
  template <typename AddToSleeping>
  bool sleep(const std::shared_ptr<SleepingSessions>& sleeping, AddToSleeping addToSleeping);
  void delistIfAwake();
  void erase(Subscription& subscription);
  void uncount(std::size_t subscriptions);
  void registerWithPart(Subscription& subscription);
  bool markPending(Subscription& subscription, ModelPartIndex index);
  [[nodiscard]] Subscription* find(const Update& update);
  void dropStale();
  void reuseCapacity();
  bool accountForMemory();

  EvtSrv::internal::ServerConnection& connection_;
  std::unordered_map<ModelPart*, Subscription> subscriptions_;  ///< not the sleeping ones
  SleepingSubscriptions sleeping_;
  /// The list that has this session, which is while it has sleeping subscriptions; else null.
  std::shared_ptr<SleepingSessions> enlistedIn_;
  std::size_t count_ = 0;
  std::uint32_t lastSerial_ = 0;
  std::vector<Update> queue_;  ///< the queue begins at `head_`
  std::size_t head_ = 0;
  std::size_t stale_ = 0;         ///< the number of entries whose subscription has ended
  std::size_t elementBytes_ = 0;  ///< what the subscriptions hold of pending elements
  /// The bytes in the account: of the queue, `elementBytes_`, and the sleeping subscriptions.
  std::size_t held_ = 0;
  bool released_ = false;
};

}  // namespace ModelSrv::internal
