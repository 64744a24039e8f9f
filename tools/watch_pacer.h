#pragma once

#include <functional>
#include <optional>
#include <queue>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tools/watcher.h"

namespace treectl {

/// Holds changes back that come too soon after the last one of their address. For one thread.
class WatchPacer {
 public:
  using Clock = Watcher::Clock;

  /// `seconds` is the least time between two changes of one address.
  explicit WatchPacer(double seconds)
      : interval_(
            std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds))) {}

  /// Whether the change is due now. Otherwise it is kept, in place of an earlier one, for which it
  /// then stands too.
  bool admit(const Change& change, Clock::time_point now);

  /// Removes and returns what has waited long enough.
  std::vector<Change> takeDue(Clock::time_point now);

  /// Removes and returns all that waits.
  std::vector<Change> takeAll();

  /// When the first of those that wait is due.
  [[nodiscard]] std::optional<Clock::time_point> deadline() const;

 private:
  struct Slot {
    Clock::time_point next;
    std::optional<Change> waiting;
  };

  Clock::duration interval_;
  std::unordered_map<std::string, Slot> slots_;
  using Entry = std::pair<Clock::time_point, Slot*>;
  /// The slots with a change that waits, by the time when it is due; the first on top.
  std::priority_queue<Entry, std::vector<Entry>, std::greater<>> waiting_;
};

}  // namespace treectl
