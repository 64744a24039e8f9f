#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "modelsrv/source/linked_queue.h"
#include "modelsrv/source/pending_values.h"
#include "modelsrv/source/sleeping_subscriptions.h"
#include "modelsrv/source/tree_cursor.h"
#include "modelsrv/source/watch_payloads.h"
#include "modelsrv/source/watch_registry.h"

namespace ModelSrv::internal {

class SessionWatches;

/// When which watch of a session is to be woken up, in milliseconds.
using WatchWakes = std::set<std::pair<std::int64_t, WatchNumber>>;

/// What a client has requested to watch.
struct WatchTerms {
  WatchNumber number = 0;
  ModelPartIndex index = ModelPartIndex_All;
  bool subtree = false;
  std::uint32_t periodMs = 0;
};

/// One watch of a client, in the server. It walks once through the parts and sends their values;
/// parts that it has passed are reported when they change, come or go, as soon as the client takes
/// it. It holds memory for what is pending, and none for the other parts. If the limit for what is
/// pending is reached, it begins again instead, which needs no memory: what the position takes is
/// accounted for from the beginning.
///
/// If its part leaves the tree the watch sleeps until a part with the same id chain and names is
/// there. Guarded by the client mutex.
class ServerWatch {
 public:
  /// `owner` outlives this.
  ServerWatch(SessionWatches& owner, const WatchTerms& terms,
              std::shared_ptr<WatchRegistry> registry);
  ~ServerWatch();
  ServerWatch(const ServerWatch&) = delete;
  ServerWatch& operator=(const ServerWatch&) = delete;

  // One of these first. They throw `std::bad_alloc`.

  void watch(ModelPart& top);
  /// Waits for any part that appears at `chain`.
  void waitAt(ChainView chain);

  /// Ends the watch: no part refers to it any more, and nothing becomes pending. May call watch
  /// handlers, and thereby the program.
  void end();

  [[nodiscard]] const WatchTerms& terms() const { return terms_; }

  /// The memory that a watch takes while nothing is pending, in bytes: an estimate, with the
  /// containers that it is in, and the position in a tree of usual depth.
  [[nodiscard]] static std::size_t bytesOf(const WatchTerms& terms);
  /// Accounts for it; false at a limit.
  [[nodiscard]] bool accountForItself();

  // Called by `PartSubscribers` and `WatchRegistry`. They do not throw.

  /// `index` of `part` has changed, which is watched.
  void partChanged(ModelPart& part, ModelPartIndex index);
  /// `part` has been added below the watched part.
  void partEntered(ModelPart& part);
  /// `part`, the watched one or below it, or its children, are about to be published, or its value
  /// is to be reported from now on.
  void partShown(ModelPart& part);
  /// `part`, below the watched part, has been removed from `formerParent`.
  void partLeft(const ModelPart& part, const ModelPart& formerParent,
                std::span<ModelPart* const> descendants);
  /// The watched part has left the tree, where it had this path (null: there was no memory for it),
  /// and no longer refers to this.
  void topLeft(ModelPart& part, const PartPath* path);
  [[nodiscard]] bool waitsFor(const ModelPart& part, const PartPath& path) const;
  /// What `waitsFor` was true for has entered the tree.
  void topEntered(ModelPart& part);
  void closeConnection();

  // Called by `SessionWatches`.

  enum class Taken {
    nothing,  ///< nothing is pending
    event,
    paused,  ///< something is pending, and to be sent later, from a dispatch
  };
  /// Removes the next pending event and appends its payload. With `inDispatch` it may call the
  /// program, which may end the watch. What the program throws passes through.
  Taken takeNext(std::uint16_t& type, std::vector<std::uint8_t>& payload, bool inDispatch);
  [[nodiscard]] bool hasPending() const {
    return phase_ != Phase::running || !structure_.empty() || !values_.isEmpty();
  }
  /// Something is pending: has it sent.
  void pendingAdded();
  /// Lets changes whose period is over become pending.
  void wakeValues(std::int64_t nowMs) { values_.wake(nowMs); }
  [[nodiscard]] std::int64_t nextWake() const { return values_.nextWake(); }

  // For the owner alone.
  QueueLinks<ServerWatch> links;
  std::int64_t wakesAtMs = 0;  ///< 0: it need not be woken
  /// With a period: the node of `WatchWakes` while it need not be woken, so that a rest allocates
  /// nothing.
  WatchWakes::node_type wake;

 private:
  enum class Phase {
    begin,      ///< the begin mark is next
    firstWalk,  ///< the cursor is on its way
    complete,   ///< the complete mark is next
    running,
  };
  /// A change of the structure. `part` has come with its descendants; or, if it is null, what was
  /// at `chain` has gone.
  struct StructureChange {
    ModelPart* part = nullptr;
    std::vector<ModelPartId> chain;
    bool hasBegun = false;  ///< the walk, of the first one
  };

  /// The memory that a change of the structure takes besides its chain, an estimate.
  static constexpr std::size_t bytesOfStructureChange = 96;

  void enlist(ModelPart& top);
  void delist();
  void restart();
  void addStructure(StructureChange change);
  void accountForMemory();
  void addWalk(ModelPart& part, bool isAgain);
  [[nodiscard]] bool isReported(const ModelPart& part, const ModelPart* formerParent);
  [[nodiscard]] bool wasReported(const ModelPart& part, const ModelPart& formerParent);
  [[nodiscard]] bool isInQueuedWalk(const ModelPart& part, const ModelPart* formerParent) const;
  void dropPending(const ModelPart& part, std::span<ModelPart* const> descendants);
  void popStructure();

  Taken takeWalk(std::uint16_t& type, std::vector<std::uint8_t>& payload, bool& finished);
  Taken takeStructure(std::uint16_t& type, std::vector<std::uint8_t>& payload);
  Taken takeValue(std::uint16_t& type, std::vector<std::uint8_t>& payload, bool inDispatch);
  void encodeAdded(ModelPart& part, std::vector<std::uint8_t>& payload);

  SessionWatches& owner_;
  const WatchTerms terms_;
  const std::shared_ptr<WatchRegistry> registry_;
  ModelPart* top_ = nullptr;  ///< null while it sleeps

  // While it sleeps.
  std::vector<ModelPartId> sleepsAt_;
  std::optional<std::string> sleepNames_;    ///< none: any part at the chain
  const ModelPart* sleepingPart_ = nullptr;  ///< compared only
  bool sleeps_ = false;
  bool ended_ = false;

  Phase phase_ = Phase::begin;
  TreeCursor cursor_;
  std::list<StructureChange> structure_;  ///< takes no memory while it is empty
  std::size_t structureBytes_ = 0;
  /// The parts in `structure_` whose walk has not begun, and whether the client may have heard of
  /// them before.
  std::unordered_map<const ModelPart*, bool> walks_;
  PendingValues values_;
  std::size_t ownBytes_ = 0;   ///< accounted for, until the end
  std::size_t accounted_ = 0;  ///< the bytes of what is pending, and of the path while it sleeps
};

}  // namespace ModelSrv::internal
