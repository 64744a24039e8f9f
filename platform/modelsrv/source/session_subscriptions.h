#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "evtsrv/source/port_server.h"
#include "modelsrv/model_part.h"
#include "modelsrv/source/subscription.h"

namespace ModelSrv::internal {

/// How many subscriptions a server keeps for one client.
inline constexpr std::size_t maxSubscriptions = 1'048'576;

/// What one client has subscribed and the updates that it has not taken yet: at
/// most one for each part and index, in the order in which they first changed.
/// Knows no message. Guarded by the client mutex.
class SessionSubscriptions {
 public:
  /// `connection` is told when the queue has something new; it outlives this.
  explicit SessionSubscriptions(EvtSrv::internal::ServerConnection& connection);
  ~SessionSubscriptions();
  SessionSubscriptions(const SessionSubscriptions&) = delete;
  SessionSubscriptions& operator=(const SessionSubscriptions&) = delete;

  /// Counts one more subscription; `ModelRes_LimitReached` where there are
  /// `maxSubscriptions`.
  ModelRes add(ModelPart& part, ModelPartIndex index);

  /// Takes one back. What waits for a part that nothing wants any more is dropped
  /// with its last subscription. `ModelRes_NotSubscribed` where there is none.
  ModelRes take(ModelPart& part, ModelPartIndex index);

  /// Takes the oldest update that waits; false where there is none.
  bool next(ModelPart*& part, ModelPartIndex& index);

  [[nodiscard]] std::size_t count() const { return count_; }
  /// How many updates wait.
  [[nodiscard]] std::size_t pendingCount() const { return waiting() - stale_; }
  /// How many entries the queue holds, those of subscriptions that have ended
  /// included: never more than twice what waits and some.
  [[nodiscard]] std::size_t waiting() const { return queue_.size() - head_; }

  // What a part's list of subscribers calls.

  /// `index` of the subscribed part has changed, and the subscription wants it. Throws
  /// nothing: where there is no memory for the update the connection ends.
  void changed(Subscription& subscription, ModelPartIndex index);
  /// The part goes: its subscription ends here, without a word to the part.
  void forget(Subscription& subscription);

 private:
  struct Update {
    ModelPart* part;  ///< a key only: the part may have gone
    std::uint32_t serial;
    ModelPartIndex index;
  };

  void subscribe(Subscription& subscription);
  bool markPending(Subscription& subscription, ModelPartIndex index);
  [[nodiscard]] Subscription* find(const Update& update);
  void dropStale();
  void reclaim();

  EvtSrv::internal::ServerConnection& connection_;
  std::unordered_map<ModelPart*, Subscription> subscriptions_;
  std::size_t count_ = 0;
  std::uint32_t lastSerial_ = 0;
  std::vector<Update> queue_;  ///< waiting from `head_` on
  std::size_t head_ = 0;
  std::size_t stale_ = 0;  ///< entries whose subscription has ended
};

}  // namespace ModelSrv::internal
