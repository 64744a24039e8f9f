#pragma once

#include <poll.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/time_text.h"
#include "tools/watched_tree.h"

namespace treectl {

/// Watches what addresses stand for: a node stands for all parts below it, also those that appear
/// later. For one thread.
class Watcher final : private ConnectionListener {
 public:
  using Clock = std::chrono::steady_clock;

  /// The time `seconds` from now.
  [[nodiscard]] static Clock::time_point after(double seconds) {
    return Clock::now() +
           std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  }

  Watcher(Context& context, WatchNeeds needs) : context_(context), needs_(needs) {}

  /// Starts to watch. What fails is reported, and the rest watched. False if nothing can be.
  bool start(const std::vector<Address>& addresses);

  /// Waits until something changes or `deadline`, and returns all that has changed since; nothing
  /// also after a signal. Of each part the last value, and no value in between if the program has
  /// not kept up.
  /// Also returns when there is an event of `other`, if that is not null.
  [[nodiscard]] std::vector<Change> wait(std::optional<Clock::time_point> deadline,
                                         pollfd* other = nullptr);

  /// Whether all current values have been returned.
  [[nodiscard]] bool isComplete() const;

  /// The parts of all addresses.
  void forEachPart(const std::function<void(const WatchedPart&)>& visit) const;

  /// Calls `visit` for each node that belongs to the structure, which must be needed; perhaps more
  /// than once.
  void forEachNode(const std::function<void(const WatchedPart&)>& visit) const;

 private:
  struct WatchedAddress {
    std::string text;
    std::vector<Connection*> connections;
  };

  void lost(Connection& connection) override;
  void restored(Connection& connection) override;

  Visit addMatch(const Match& match, const Address& address);
  void noteConnection(Connection& connection);
  /// Adds a line for each address that is watched on that server.
  void reportConnection(Connection& connection, Change::Event event);

  Context& context_;
  WatchNeeds needs_;
  std::vector<std::unique_ptr<WatchedTree>> trees_;
  std::vector<WatchedAddress> addresses_;
  std::vector<Connection*> connections_;
  std::vector<Change> changes_;
};

}  // namespace treectl
