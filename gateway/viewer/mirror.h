#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/viewer/device_link.h"
#include "gateway/viewer/idle_trees.h"
#include "gateway/viewer/link_node.h"
#include "gateway/viewer/mirror_clients.h"
#include "gateway/viewer/mirror_part.h"
#include "gateway/viewer/mirror_store_requests.h"
#include "gateway/viewer/mirror_tree.h"
#include "gateway/viewer/port_names.h"
#include "gateway/viewer/shape_fetch.h"
#include "gateway/viewer/value_subscription.h"
#include "gateway/wire/device_state.h"

namespace modelgate {

/// A server of a device as a local server: `Model_<device>.<server>` while it is there, and
/// `Model_<device>.<server>~offline` with the last values, read-only, when it is lost. It has both
/// names for as long as it may come back, so that its clients never get another server instead.
///
/// Threads: that of the loop.
class Mirror final : public LinkStatus {
 public:
  /// `link` and `device`, what is known of it, outlive the object.
  Mirror(DeviceLink& link, const LinkStatus& device, std::string server);
  ~Mirror();
  Mirror(const Mirror&) = delete;
  Mirror& operator=(const Mirror&) = delete;

  /// The device's state says this of the server; null if it does not list it. `update` follows.
  void setState(const ServerState* state);
  /// Does what follows from the state and presence of the device.
  void update();
  /// The connection to the broker has ended; `update` follows.
  void disconnected();
  /// Notifies those who watch `_link`. To be called each second or so.
  void refresh();

  void takePage(std::size_t page, std::string_view payload) { fetch_.take(page, payload); }
  void takeBatch(std::string_view payload) { values_.take(payload); }
  /// A page of last values, which the broker has kept.
  void takeValues(std::string_view payload);

  /// Begins the end: the port goes, and clients get what is pending for them.
  void stop();
  /// Whether the server runs, as its device says.
  [[nodiscard]] bool isUp() const { return isUp_; }
  /// Why it has no port although there should be one; empty if that is not so.
  [[nodiscard]] std::string problem() const;

  [[nodiscard]] std::string_view stateText() const override;
  [[nodiscard]] std::optional<std::chrono::milliseconds> age() const override {
    return link_.age();
  }
  [[nodiscard]] std::optional<std::chrono::microseconds> roundTrip() const override {
    return link_.roundTrip();
  }
  [[nodiscard]] std::uint64_t gaps() const override { return values_.gaps(); }
  [[nodiscard]] std::optional<std::chrono::milliseconds> skew() const override {
    return link_.skew();
  }

 private:
  /// What is served; ends in the reverse order.
  struct Served {
    std::unique_ptr<MirrorRoot> root;
    std::unique_ptr<LinkNode> linkNode;
    std::unique_ptr<MirrorTree> tree;  ///< once the shape is there
    bool isServing = false;
  };

  [[nodiscard]] std::string portName() const;
  [[nodiscard]] std::string title() const;
  [[nodiscard]] bool isComplete() const;
  [[nodiscard]] bool hasShape() const;
  void serve(bool online);
  void claimNames();
  [[nodiscard]] bool isGone() const;
  void startServer();
  void report(std::string problem);
  bool build(Served& served, const Shape& shape);
  void dropTree(Served& served);
  void takeShape(const Shape& shape, const std::vector<std::string>& hashes);
  void work();
  void noteUse();
  void giveTreeBack();
  void workOffline();
  void readRetained();
  void endReading();

  DeviceLink& link_;
  const LinkStatus& device_;
  const std::string server_;
  ServerState state_;
  bool isUp_ = false;
  bool isListed_ = false;  ///< whether the device's state lists it
  bool isOnline_ = false;
  bool isStopped_ = false;
  EventLoop::Clock::time_point lostAt_;  ///< unless it is online
  std::string problem_;                  ///< of the last attempt to serve
  std::vector<std::string> builtPages_;  ///< the hashes of the tree's shape

  MirrorStoreRequests stores_;
  MirrorClients clients_;
  std::unique_ptr<Served> served_;
  std::optional<PortClaim> claim_;        ///< once it has been served
  std::optional<IdleTrees::Entry> idle_;  ///< while there is a tree without clients
  ShapeFetch fetch_;
  ValueSubscription values_;
  EventLoop::Timer retry_;
  bool readsRetained_ = false;  ///< subscribed to the values that the broker has kept
  EventLoop::Timer reading_;
};

}  // namespace modelgate
