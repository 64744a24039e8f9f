#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "gateway/viewer/device_link.h"
#include "gateway/viewer/fleet_tree.h"
#include "gateway/viewer/link_node.h"
#include "gateway/viewer/mirror.h"
#include "gateway/wire/device_state.h"

namespace modelgate {

/// A device of the fleet: its state, its mirrors, and its entry in `Model_fleet`.
///
/// Threads: that of the loop.
class Device final : public LinkStatus {
 public:
  /// Both outlive the object.
  Device(ViewerContext& context, const std::string& name);
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;
  ~Device();

  /// Its entry, which outlives the object; null if there is none.
  void setEntry(FleetDevice* entry) { entry_ = entry; }

  void connected();
  void disconnected();
  /// A message of topic `sort`/`rest` of this device.
  void take(std::string_view sort, std::string_view rest, const Message& message);
  /// Notifies those who watch ages and the like.
  void refresh();
  void stop();

  [[nodiscard]] std::string_view stateText() const override;
  [[nodiscard]] std::optional<std::chrono::milliseconds> age() const override {
    return link_.age();
  }
  [[nodiscard]] std::optional<std::chrono::microseconds> roundTrip() const override {
    return link_.roundTrip();
  }
  [[nodiscard]] std::uint64_t gaps() const override;
  [[nodiscard]] std::optional<std::chrono::milliseconds> skew() const override {
    return link_.skew();
  }

 private:
  void takeState(const Message& message);
  void takeReply(const Message& message);
  Mirror* findMirror(std::string_view server);
  void addMirrors(const DeviceState& state);
  void updateAll();

  DeviceLink link_;
  FleetDevice* entry_ = nullptr;
  bool isConflict_ = false;  ///< as its last state says
  bool saidWrong_ = false;
  std::map<std::string, std::unique_ptr<Mirror>, std::less<>> mirrors_;
};

}  // namespace modelgate
