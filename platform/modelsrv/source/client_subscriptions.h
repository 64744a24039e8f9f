#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

#include "modelsrv/model_part.h"

namespace ModelSrv::internal {

/// What a client has subscribed, in the order of subscribing, so that it can be
/// subscribed again on a new connection and updates find the parts that want
/// them. Knows no connection. Guarded by the client mutex.
class ClientSubscriptions {
 public:
  /// Names one entry; later ones are larger.
  using Key = std::uint64_t;

  struct Entry {
    ModelPart* part;  ///< whom to tell
    std::vector<ModelPartId> chain;
    void* context;
    ModelPartIndex index;
  };

  /// Takes in what the server has just accepted.
  void add(Entry entry);
  void erase(Key key);
  void clear();

  [[nodiscard]] const Entry* find(Key key) const;

  /// The last entry of `part` for that chain.
  [[nodiscard]] std::optional<Key> lastOf(const ModelPart& part,
                                          const std::vector<ModelPartId>& chain) const;
  /// Any entry of `part`.
  [[nodiscard]] std::optional<Key> anyOf(const ModelPart& part) const;

  /// Whether anything wants to know of that part.
  [[nodiscard]] bool knows(const std::vector<ModelPartId>& chain) const;

  /// The entries that an update concerns, in the order of subscribing; one for
  /// each part that subscribed.
  [[nodiscard]] std::vector<Key> concernedBy(const std::vector<ModelPartId>& chain,
                                             ModelPartIndex index) const;

  // Renewal on a new connection.

  /// The connection has been replaced: no entry is known to the server.
  void markAllLost() { renewed_ = 0; }
  /// The first entry that the server does not know.
  [[nodiscard]] std::optional<Key> firstLost() const;
  /// The server knows the entry, and all before it.
  void markRenewed(Key key) { renewed_ = key; }
  [[nodiscard]] bool isLost(Key key) const { return key > renewed_; }

 private:
  struct ChainHash {
    std::size_t operator()(const std::vector<ModelPartId>& chain) const;
  };

  std::map<Key, Entry> entries_;
  std::unordered_map<std::vector<ModelPartId>, std::vector<Key>, ChainHash> byChain_;
  /// One part may hold very many, and give them back in any order.
  std::unordered_map<const ModelPart*, std::set<Key>> byPart_;
  Key last_ = 0;
  Key renewed_ = 0;  ///< entries up to this one are known to the server
};

}  // namespace ModelSrv::internal
