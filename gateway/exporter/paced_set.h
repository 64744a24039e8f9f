#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <vector>

namespace modelgate {

/// Numbered things that are to be published, each of them at most once in a period. Time comes
/// from outside. For one thread.
class PacedSet {
 public:
  using Clock = std::chrono::steady_clock;

  /// The things 0 to `count` - 1, none of them to be published.
  PacedSet(std::size_t count, Clock::duration period) : period_(period), things_(count) {}

  /// It is to be published, when the period allows it.
  void mark(std::size_t number);
  /// All are to be published, whatever the period.
  void markAll();

  /// When the first one may be published; may have passed. Empty if there is none.
  [[nodiscard]] std::optional<Clock::time_point> deadline() const;
  /// Removes and returns one that may be published now.
  [[nodiscard]] std::optional<std::size_t> take(Clock::time_point now);

 private:
  struct Thing {
    Clock::time_point next = Clock::time_point::min();  ///< when it may be published
    bool isMarked = false;
  };

  Clock::duration period_;
  std::vector<Thing> things_;
  std::multimap<Clock::time_point, std::size_t> due_;
};

}  // namespace modelgate
