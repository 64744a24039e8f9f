#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "modelsrv/model_part.h"
#include "modelsrv/source/id_chain.h"
#include "modelsrv/source/subscription.h"

/// Subscriptions of parts that are not in the tree. Guarded by the client mutex.
namespace ModelSrv::internal {

class SessionSubscriptions;

/// Sets `chain` to that of a part in the tree of a root.
void chainOf(const ModelPart& part, std::vector<ModelPartId>& chain);

/// What identifies a part that leaves the tree and comes back, perhaps as another object: its id
/// chain, and its name and those of the nodes above it.
struct PartPath {
  std::vector<ModelPartId> chain;
  /// Each name after its length (two bytes), from the root down.
  std::string names;

  /// The path of a part in the tree of a root. If the part, or a part above it, has just been
  /// removed from a node, `formerParent` is that node. Throws `std::bad_alloc`.
  static PartPath of(const ModelPart& part, const ModelPart* formerParent = nullptr);
};

/// The sleeping subscriptions of one client, by id chain. Each waits for the part of a path, or,
/// if the names are not known, for any part of a chain.
class SleepingSubscriptions {
 public:
  /// The maximum memory that they use, in bytes: an average of 300 for each subscription of a
  /// client that has as many as it may. (A chain may have 4,096 ids.)
  static constexpr std::size_t maxBytes = std::size_t{32} * 1024 * 1024;

  /// Adds what waits for the part of `path`, which `part` was. False if it would exceed
  /// `maxBytes`; nothing has changed then. Nothing has changed either if it throws
  /// `std::bad_alloc`.
  [[nodiscard]] bool add(PartPath path, SubscribedIndices indices, ModelPart& part);
  /// The same for the first subscribable part that appears at `chain`.
  [[nodiscard]] bool add(ChainView chain, ModelPartIndex index);

  /// Removes one subscription to `index` of a part at `chain`; false if there is none.
  bool cancel(ChainView chain, ModelPartIndex index);

  /// Removes what waits for the part of `path`, which is `part` now: all of it if `part` is
  /// subscribable, else only what was of the same object. Empty if nothing does. If it throws
  /// `std::bad_alloc`, nothing has changed.
  [[nodiscard]] SubscribedIndices take(const PartPath& path, const ModelPart& part);

  /// Removes what waits for one part; returns the number of subscriptions. There must be one.
  std::size_t removeOne();

  [[nodiscard]] bool contains(const std::vector<ModelPartId>& chain) const {
    return entries_.contains(chain);
  }
  /// The memory that one at `chain` takes without names, and with one index, in bytes: an estimate,
  /// with that of the containers.
  [[nodiscard]] static std::size_t bytesFor(ChainView chain);
  [[nodiscard]] bool isEmpty() const { return entries_.empty(); }
  [[nodiscard]] std::size_t bytes() const { return bytes_; }

 private:
  struct Entry {
    std::optional<std::string> names;  ///< none: of any part at the chain
    SubscribedIndices indices;
    /// Compared only: it may have been destroyed, so `PartAccess::hasSleeping` is decisive too.
    /// Null if there are no names.
    const ModelPart* part;
  };
  using Chain = std::vector<ModelPartId>;
  /// Ordered, so that a client cannot choose chains that are slow to find.
  using Entries = std::map<Chain, std::vector<Entry>, ChainLess>;

  [[nodiscard]] bool add(Chain chain, Entry entry);
  [[nodiscard]] static std::size_t bytesOfChain(ChainView chain);
  [[nodiscard]] static std::size_t bytesOf(const Chain& chain, const Entry& entry);
  void erase(Entries::iterator at, std::vector<Entry>::iterator entry);

  Entries entries_;
  std::size_t bytes_ = 0;
};

/// The sessions of a root's server that have sleeping subscriptions.
class SleepingSessions {
 public:
  /// Throws `std::bad_alloc`; nothing has changed then.
  void add(SessionSubscriptions& session) { sessions_.push_back(&session); }
  void remove(const SessionSubscriptions& session);

  /// `part` and its `descendants` have been added to the tree: wakes up their subscriptions.
  /// Does not throw: a session for which there is no memory is closed.
  void partEntered(ModelPart& part, std::span<ModelPart* const> descendants);

 private:
  void wakeUp(ModelPart& part);

  std::vector<SessionSubscriptions*> sessions_;
  std::vector<ModelPartId> chain_;  ///< of the part that is being added
};

}  // namespace ModelSrv::internal
