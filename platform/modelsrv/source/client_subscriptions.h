#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

#include "modelsrv/model_part.h"

namespace ModelSrv::internal {

/// The subscriptions of a client, in the order of subscribing: used to renew them on a new
/// connection and to find the parts that an update concerns. Independent of any connection.
/// Guarded by the client mutex.
class ClientSubscriptions {
 public:
  /// Identifies one subscription. Later ones have larger keys.
  using Key = std::uint64_t;

  struct Entry {
    ModelPart* part;  ///< the object to notify
    std::vector<ModelPartId> chain;
    void* context;
    ModelPartIndex index;
    std::uint64_t refusedBy = 0;  ///< the last connection whose server refused it
  };

  /// Adds a subscription that the server has just accepted.
  void add(Entry entry);
  void erase(Key key);
  void clear();

  [[nodiscard]] const Entry* find(Key key) const;

  /// The most recent subscription of `part` to that chain.
  [[nodiscard]] std::optional<Key> lastOf(const ModelPart& part,
                                          const std::vector<ModelPartId>& chain) const;
  /// Any subscription of `part`.
  [[nodiscard]] std::optional<Key> anyOf(const ModelPart& part) const;

  /// Whether there is any subscription to that chain.
  [[nodiscard]] bool hasAny(const std::vector<ModelPartId>& chain) const;

  /// The subscriptions that an update concerns, in the order of subscribing; one for each
  /// object that subscribed.
  [[nodiscard]] std::vector<Key> matching(const std::vector<ModelPartId>& chain,
                                          ModelPartIndex index) const;

  // Renewal on a new connection. Subscriptions that the new server does not have are lost.

  /// The connection has been replaced: all subscriptions are lost. Takes the same time for any
  /// number of them.
  void markAllLost();
  /// The first lost subscription that this connection's server has not refused.
  [[nodiscard]] std::optional<Key> firstLost() const;
  /// The server has this subscription, or a request for it is on its way; the same holds for all
  /// before it, or they are refused.
  void markRenewed(Key key) { renewed_ = key; }
  /// The server does not have this subscription, which stays and is renewed on the next
  /// connection. All before it are renewed or refused.
  void markRefused(Key key);
  [[nodiscard]] bool isLost(Key key) const;

 private:
  struct ChainHash {
    std::size_t operator()(const std::vector<ModelPartId>& chain) const;
  };

  std::map<Key, Entry> entries_;
  std::unordered_map<std::vector<ModelPartId>, std::vector<Key>, ChainHash> byChain_;
  /// A set, since one part may have very many subscriptions and cancel them in any order.
  std::unordered_map<const ModelPart*, std::set<Key>> byPart_;
  Key last_ = 0;
  std::uint64_t connection_ = 1;  ///< the number of the connection
  Key renewed_ = 0;               ///< subscriptions up to this key are renewed or refused
};

}  // namespace ModelSrv::internal
