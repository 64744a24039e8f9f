#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "evtsrv/source/manager_core.h"
#include "modelsrv/model_part.h"
#include "modelsrv/source/id_chain.h"
#include "modelsrv/source/linked_queue.h"

/// How the changes of a tree reach the watches of its server's clients. Guarded by the client
/// mutex.
namespace ModelSrv::internal {

class ServerWatch;
struct PartExtras;
struct PartPath;

/// What the watches of a process have in common, so that a change costs one test if no
/// subtree is watched.
struct WatchCounts {
  /// The number of subtrees that are watched, in all trees of this process.
  static inline std::atomic<std::size_t> subtrees{0};
  /// The number of parts with a watch handler, likewise.
  static inline std::atomic<std::size_t> handlers{0};
  /// The number of watches whose part is in its tree.
  static inline std::atomic<std::size_t> watches{0};

  static bool any() { return watches.load(std::memory_order_relaxed) != 0; }
  static bool anySubtree() { return subtrees.load(std::memory_order_relaxed) != 0; }
  static bool anyHandler() { return handlers.load(std::memory_order_relaxed) != 0; }
};

/// Whether a subtree that has `part`, but does not begin there, is watched.
[[nodiscard]] bool isInWatchedSubtree(const ModelPart& part);

/// `index` of `part` has changed: notifies the watches of subtrees.
void notifySubtreeWatches(ModelPart& part, ModelPartIndex index);

/// `part` accepts subscriptions again: has its value reported by the watches of subtrees.
void reportSubscribable(ModelPart& part);

/// The watches of one tree whose parts are not in it, the parts whose watch handlers know that they
/// are watched, and the count of changes of its structure.
class WatchRegistry final : private EvtSrv::internal::DeferredWork {
 public:
  /// `firstVersion` should be one that no other server of the name has had. `core` outlives this.
  WatchRegistry(EvtSrv::internal::ManagerCore& core, std::uint64_t firstVersion)
      : core_(core), structureVersion_(firstVersion) {}
  ~WatchRegistry() override;

  [[nodiscard]] std::uint64_t structureVersion() const { return structureVersion_; }

  /// `part` and its `descendants` have been added to the tree. Does not throw: a session for which
  /// there is no memory is closed.
  void partEntered(ModelPart& part, std::span<ModelPart* const> descendants);
  /// `part` and its `descendants` have been removed from `formerParent`, and are no longer below
  /// it. Does not throw either.
  void partLeft(const ModelPart& part, ModelPart& formerParent,
                std::span<ModelPart* const> descendants);

  /// `node` is about to show its children, or to hide them, or to change otherwise. Does not throw.
  void nodeChanges(ModelPart& node);

  /// `watch` waits for a part at `chain`. Throws `std::bad_alloc`.
  void addSleeping(const std::vector<ModelPartId>& chain, ServerWatch& watch);
  void removeSleeping(const std::vector<ModelPartId>& chain, const ServerWatch& watch);

  /// The watch handler of the part of `extras` knows that the part is watched, or not any more.
  void list(PartExtras& extras);
  void delist(PartExtras& extras);
  /// A watch of a subtree has ended: calls the watch handlers of the parts that no client watches
  /// any more, a few now, and the others in the next dispatches.
  void subtreeUnwatched();
  /// The service has ended, and with it all watches: calls those that are left.
  void reportAllUnwatched();

 private:
  bool runDeferred() override;
  void reportSomeUnwatched(std::int64_t untilNs);
  void wakeUp(ModelPart& part);

  EvtSrv::internal::ManagerCore& core_;
  LinkedQueue<PartExtras> listed_;
  std::size_t listedCount_ = 0;
  std::size_t toCheck_ = 0;  ///< of `listed_`, from its beginning
  std::uint64_t structureVersion_;
  std::multimap<std::vector<ModelPartId>, ServerWatch*, ChainLess> sleeping_;
  std::vector<ModelPartId> chain_;  ///< of the part that is being added
};

}  // namespace ModelSrv::internal
