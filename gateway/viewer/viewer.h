#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/link/broker_link.h"
#include "gateway/link/event_loop.h"
#include "gateway/viewer/viewer_context.h"

namespace modelgate {

struct ViewerOptions {
  /// The broker, user and certificates. The viewer sets the client id itself, and has no will.
  LinkOptions link;
  std::string fleet;  ///< as for `isFleetName`
  /// The user in the topics of requests and replies, as for `isTopicLevel`: what the broker takes
  /// this client for.
  std::string user = "anonymous";
  /// The devices to show (`isFleetName`); none: every device of the fleet.
  std::vector<std::string> devices;
  /// If set, members of this group may connect to the mirrors, too.
  std::optional<gid_t> group;
  ViewerTimes times;
  /// The most mirrors; each takes 6 descriptors and 8 KiB, and 3 descriptors for each client.
  std::size_t maxMirrors = 16'384;
  /// Receives lines for standard error, without a line feed. `detail` if they are of interest with
  /// -v alone. May be empty.
  std::function<void(std::string_view line, bool detail)> log;
  /// Called once: the broker has accepted the subscriptions, `Model_fleet` is served, and so is a
  /// mirror of each server whose device's state was retained. May be empty.
  std::function<void()> ready;
};

/// Makes the servers that devices export local servers again: `Model_<device>.<server>` for each
/// while its device is online, and `Model_<device>.<server>~offline`, which has the last values and
/// is read-only, when it is lost. `Model_fleet` lists the devices. Of several servers with one name
/// the first one has the ports; `Model_fleet` says so of the others.
///
/// Threads: that of the loop, which must outlive the object.
class Viewer {
 public:
  /// Throws std::bad_alloc, std::system_error, or std::runtime_error with a line for a person for
  /// options that cannot work.
  Viewer(EventLoop& loop, ViewerOptions options);
  /// Ends everything that still runs, and removes the ports.
  ~Viewer();
  Viewer(const Viewer&) = delete;
  Viewer& operator=(const Viewer&) = delete;

  /// Begins to serve `Model_fleet` and to connect.
  void start();
  /// Ends the servers, disconnects in good order, and calls `done`: after 2 s at the latest.
  void finish(std::function<void()> done);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace modelgate
