#pragma once

#include <string>
#include <string_view>

#include "gateway/viewer/device_link.h"
#include "gateway/viewer/mirror_tree.h"

namespace modelgate {

/// Has the device carry out what clients store in its mirror. The client waits meanwhile.
///
/// Threads: that of the loop.
class MirrorStoreRequests final : public MirrorStores {
 public:
  /// `link` outlives the object.
  MirrorStoreRequests(DeviceLink& link, std::string server)
      : link_(link), server_(std::move(server)) {}

  /// The tree that gets the values after the stores; null for none.
  void setTree(MirrorTree* tree) { tree_ = tree; }

  ModelSrv::ModelRes store(MirrorPart& part, std::string_view text, bool flag,
                           ModelSrv::ModelPartIndex index, std::string& reason) override;

 private:
  /// The part that a store is for.
  struct Target {
    std::vector<ModelSrv::ModelPartId> chain;
    ModelSrv::ModelPartIndex index;
  };

  void finish(const RequestTable::Answer& answer, const Target& target,
              ModelSrv::DeferredStore& store);

  [[nodiscard]] std::string unreachableReason() const;

  DeviceLink& link_;
  const std::string server_;
  MirrorTree* tree_ = nullptr;
};

}  // namespace modelgate
