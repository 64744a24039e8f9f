#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/exporter/path_rules.h"
#include "gateway/link/broker_link.h"
#include "gateway/link/event_loop.h"

namespace modelgate {

struct ExporterOptions {
  /// The broker, user and certificates. The exporter sets the client id, the will and the delay of
  /// the will itself.
  LinkOptions link;
  std::string fleet;   ///< as for `isFleetName`
  std::string device;  ///< as for `isFleetName`
  /// The ports to export ("Model_host", or "host" for it); none: every server of this machine.
  std::vector<std::string> servers;
  /// Where viewers may store: "/path" of each server, or "/S/path" of the server S; "/" for
  /// everything (`isPathRule`). None: nowhere.
  std::vector<std::string> allowSet;
  std::chrono::milliseconds interval{50};  ///< between two batches; 0 to 10 s
  /// The longest silence in `upd/S` while a viewer watches; 100 ms to 1 h.
  std::chrono::milliseconds heartbeat{10'000};
  /// Subtrees whose nodes are published as flat JSON, in the form of `allowSet`.
  std::vector<std::string> json;
  /// Whether the last values are retained at the broker, too.
  bool retainValues = false;
  /// Receives lines for standard error, without a line feed. `detail` if they are of interest with
  /// -v alone. May be empty.
  std::function<void(std::string_view line, bool detail)> log;
  /// Called once: the broker has the state of this device, with each server that runs, and
  /// requests are accepted. Also called if nothing runs. May be empty.
  std::function<void()> ready;
};

/// Publishes the model servers of this machine at a broker, and carries out the requests that come
/// from there.
///
/// Threads: that of the loop, which must outlive the object. It has a thread of its own for each
/// server, which calls nothing of the program but `EventLoop::post`.
class Exporter {
 public:
  /// Throws std::bad_alloc, std::system_error, or std::runtime_error with a line for a person for
  /// options that cannot work.
  Exporter(EventLoop& loop, ExporterOptions options);
  /// Breaks everything off that still runs; waits for the threads, each at most for the 2 s that a
  /// request to its server takes.
  ~Exporter();
  Exporter(const Exporter&) = delete;
  Exporter& operator=(const Exporter&) = delete;

  /// Begins to connect and to look for servers.
  void start();
  /// Publishes that the device is offline, disconnects in good order, and calls `done`: after 2 s
  /// at the latest.
  void finish(std::function<void()> done);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace modelgate
