#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

namespace modelgate {

/// Follows the sequence of a server's batches: up to where none is missing, and whether one is.
class GapTracker {
 public:
  /// A batch has arrived. Returns whether it shows a gap that was not there before.
  bool take(std::uint64_t previous, std::uint64_t sequence) {
    if (previous <= complete_) {
      complete_ = std::max(complete_, sequence);
      return close();
    }
    if (ahead_ && previous <= ahead_->last) {
      ahead_->last = std::max(ahead_->last, sequence);
      return false;
    }
    // If there was a gap already, this is another one: what came between them does not help.
    ahead_ = Run{previous, std::max(previous, sequence)};
    return true;
  }

  /// Everything up to `sequence` is there.
  void synced(std::uint64_t sequence) {
    complete_ = std::max(complete_, sequence);
    static_cast<void>(close());
  }

  /// Begins anew: nothing is there.
  void reset() {
    complete_ = 0;
    ahead_.reset();
  }

  /// The sequence number up to which nothing is missing.
  [[nodiscard]] std::uint64_t complete() const { return complete_; }
  [[nodiscard]] bool hasGap() const { return ahead_.has_value(); }

 private:
  /// Batches after a gap, without a further one.
  struct Run {
    std::uint64_t previous;
    std::uint64_t last;
  };

  bool close() {
    if (ahead_ && ahead_->previous <= complete_) {
      complete_ = std::max(complete_, ahead_->last);
      ahead_.reset();
    }
    return false;
  }

  std::uint64_t complete_ = 0;
  std::optional<Run> ahead_;
};

}  // namespace modelgate
