#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/link/event_loop.h"

namespace modelgate {

/// Finds the servers of this machine, also those that come later. For the loop's thread.
class ServerDiscovery {
 public:
  /// The port of a server that runs, or may run. Called again when it may have come back.
  using Found = std::function<void(const std::string& port)>;

  /// `servers` as in `ExporterOptions`.
  ServerDiscovery(EventLoop& loop, std::vector<std::string> servers, Found found);
  ~ServerDiscovery();
  ServerDiscovery(const ServerDiscovery&) = delete;
  ServerDiscovery& operator=(const ServerDiscovery&) = delete;

  /// Reports the servers that there are, and from then on those that come.
  void start();
  /// Reports the servers that there are again.
  void scan();

 private:
  void takeEvents();
  [[nodiscard]] bool isWanted(std::string_view port) const;

  EventLoop& loop_;
  std::vector<std::string> servers_;
  Found found_;
  int watch_ = -1;  ///< inotify(7); negative if the system has none: then it looks at times
  EventLoop::Timer timer_;
  unsigned repetitions_ = 0;  ///< of the next scan
};

/// Opens the mailbox of `port`, without writing: poll(2) reports an error of the descriptor, which
/// is the caller's, as soon as no server reads that mailbox. Negative if none does now, or on an
/// error of the system. Any thread.
[[nodiscard]] int openMailbox(const std::string& port);

/// Whether a server may have this port, and it is one that is found without being named: it begins
/// with "Model_" or ends with ".Model".
[[nodiscard]] bool isServerPort(std::string_view port);

}  // namespace modelgate
