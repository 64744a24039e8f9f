#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "gateway/viewer/link_node.h"
#include "gateway/viewer/live_part.h"
#include "modelsrv/model_root.h"

namespace modelgate {

/// A device in `Model_fleet`: its state, the time since it was last heard, and its servers.
class FleetDevice {
 public:
  /// `status` outlives the object.
  FleetDevice(ModelSrv::ModelPartId id, const std::string& name, const LinkStatus& status);
  ~FleetDevice();
  FleetDevice(const FleetDevice&) = delete;
  FleetDevice& operator=(const FleetDevice&) = delete;

  /// Adds a server, if there is a free id. `read` appends "up" or "down", and why it has no port if
  /// it should have one.
  void addServer(const std::string& name, LivePart::Read read);
  /// Notifies the subscribers of what has changed.
  void refresh();

  [[nodiscard]] ModelSrv::ModelNode& node() { return node_; }

 private:
  ModelSrv::ModelNode node_;
  LivePart state_;
  LivePart age_;
  ModelSrv::ModelNode serversNode_;
  std::map<std::string, std::unique_ptr<LivePart>> servers_;
};

/// The server `Model_fleet`.
///
/// Threads: one.
class FleetTree {
 public:
  explicit FleetTree(EvtSrv::EventPortManager& manager) : root_(&manager) {}

  ModelSrv::ModelRes start(std::optional<gid_t> group);
  void stop(bool atOnce) { root_.stop(atOnce); }
  /// Whether another device has a place.
  [[nodiscard]] bool hasCapacity() const { return count_ <= ModelSrv::ModelPartId_Max; }
  /// Adds a device, which lives as long as this object; null without capacity.
  FleetDevice* add(const std::string& name, const LinkStatus& status);
  /// Puts the devices into the order of their names. Costs nothing if they are.
  void sort();

 private:
  ModelSrv::ModelRoot root_;
  std::size_t count_ = 0;
  bool isSorted_ = true;
  std::map<std::string, std::unique_ptr<FleetDevice>> devices_;
};

}  // namespace modelgate
