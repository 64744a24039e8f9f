#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "gateway/viewer/device_link.h"
#include "gateway/viewer/gap_tracker.h"
#include "gateway/viewer/mirror_tree.h"

namespace modelgate {

/// Keeps the values of a mirror as they are at the device while somebody uses them: a lease, the
/// batches, and a sync at the beginning and after a gap.
///
/// Threads: that of the loop.
class ValueSubscription {
 public:
  /// `link` outlives the object. `isWanted` decides, when the lease is due to be renewed, whether
  /// it is. `synced` is called when all values are there.
  ValueSubscription(DeviceLink& link, std::string server, std::function<bool()> isWanted,
                    std::function<void()> synced);

  /// Sets the tree that gets the values, and the version of its shape. It outlives the object, or
  /// `detach` is called before its end.
  void attach(MirrorTree& tree, std::uint64_t shape);
  void detach();
  /// The same, and the values have gone with the tree.
  void forget();
  [[nodiscard]] bool isAttachedTo(const MirrorTree* tree, std::uint64_t shape) const {
    return tree_ == tree && shape_ == shape && epoch_ == link_.epoch();
  }

  /// Begins the lease and requests the values, if that has not been done.
  void begin();
  /// Ends the lease.
  void end();
  /// The connection has ended, and the lease with it.
  void disconnected();

  /// A message of topic `upd/S`.
  void take(std::string_view payload);

  /// Whether all values have been there since `attach`, and each change has come since.
  [[nodiscard]] bool isSynced() const { return isSynced_; }
  [[nodiscard]] bool isActive() const { return isActive_; }
  [[nodiscard]] std::uint64_t gaps() const { return gaps_; }

 private:
  [[nodiscard]] bool isCurrent(const Batch& batch) const;
  void apply(const Batch& batch);
  void sendWatch();
  void renewLater(std::chrono::milliseconds pause);
  void sendSync();
  void takeSync(const RequestTable::Answer& answer);
  void syncLater();
  void requestElements(const MirrorPart& part);

  DeviceLink& link_;
  const std::string server_;
  const std::function<bool()> isWanted_;
  const std::function<void()> synced_;

  MirrorTree* tree_ = nullptr;
  std::uint64_t epoch_ = 0;
  std::uint64_t shape_ = 0;
  GapTracker tracker_;
  std::uint64_t gaps_ = 0;

  bool isActive_ = false;
  bool isSynced_ = false;
  bool isSyncing_ = false;
  std::optional<std::uint64_t> syncedUpTo_;  ///< by the first reply of the sync
  bool saidDenied_ = false;
  /// Requests of an earlier tree or lease are ignored.
  std::uint64_t generation_ = 0;
  EventLoop::Timer renewal_;
  EventLoop::Timer syncTimer_;
};

/// The ids of `part` from the root down.
[[nodiscard]] std::vector<ModelSrv::ModelPartId> chainOf(const ModelSrv::ModelPart& part);
/// The part with a value at `chain` below the root, or null.
[[nodiscard]] MirrorPart* findMirrorPart(const ModelSrv::ModelRoot& root,
                                         const std::vector<ModelSrv::ModelPartId>& chain);

}  // namespace modelgate
