#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "evtsrv/source/server_session.h"
#include "modelsrv/model_part.h"
#include "modelsrv/source/subscription.h"

namespace ModelSrv::internal {

/// The maximum number of subscriptions of one client.
inline constexpr std::size_t maxSubscriptions = 1'048'576;

/// The subscriptions of one client in a server, and the queue of its pending updates: at most
/// one for each part and index, in the order of the first change. Independent of the encoding
/// of messages. Guarded by the client mutex.
class SessionSubscriptions {
 public:
  /// `connection` is notified when the queue has a new update. It must outlive this object.
  explicit SessionSubscriptions(EvtSrv::internal::ServerConnection& connection);
  ~SessionSubscriptions();
  SessionSubscriptions(const SessionSubscriptions&) = delete;
  SessionSubscriptions& operator=(const SessionSubscriptions&) = delete;

  /// Adds one subscription. `ModelRes_LimitReached` if there are `maxSubscriptions` already.
  ModelRes add(ModelPart& part, ModelPartIndex index);

  /// Cancels one subscription; `ModelRes_NotSubscribed` if there is none. With the last
  /// subscription to a part its pending updates are dropped.
  ModelRes cancel(ModelPart& part, ModelPartIndex index);

  /// Removes the oldest pending update from the queue; false if there is none.
  bool takeNext(ModelPart*& part, ModelPartIndex& index);

  [[nodiscard]] std::size_t count() const { return count_; }
  /// The number of pending updates.
  [[nodiscard]] std::size_t pendingCount() const { return queueLength() - stale_; }
  /// The number of entries in the queue, including stale ones (of subscriptions that have
  /// ended): at most twice the number of pending updates plus a constant.
  [[nodiscard]] std::size_t queueLength() const { return queue_.size() - head_; }

  // Called by `PartSubscribers`.

  /// `index` of the subscribed part has changed, and the subscription matches it. Does not
  /// throw: if there is no memory for the update the connection is closed.
  void partChanged(Subscription& subscription, ModelPartIndex index);
  /// The part no longer refers to the subscription, which ends.
  void partRemoved(Subscription& subscription);

 private:
  struct Update {
    ModelPart* part;  ///< used as a key only: the part may have been destroyed
    std::uint32_t serial;
    ModelPartIndex index;
  };

  void registerWithPart(Subscription& subscription);
  bool markPending(Subscription& subscription, ModelPartIndex index);
  [[nodiscard]] Subscription* find(const Update& update);
  void dropStale();
  void reuseCapacity();

  EvtSrv::internal::ServerConnection& connection_;
  std::unordered_map<ModelPart*, Subscription> subscriptions_;
  std::size_t count_ = 0;
  std::uint32_t lastSerial_ = 0;
  std::vector<Update> queue_;  ///< the queue begins at `head_`
  std::size_t head_ = 0;
  std::size_t stale_ = 0;  ///< the number of entries whose subscription has ended
};

}  // namespace ModelSrv::internal
