#pragma once

#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

#include "gateway/exporter/value_table.h"

namespace modelgate {

/// Positions from `first` up to, and without, `second`.
using PositionRange = std::pair<Position, Position>;

/// The sequence numbers of a server's parts, and what is to be sent.
///
/// Each part has the number of its last change. A part that is covered by a lease waits for the
/// next batch and gets its number then. A change of another part gets the next number, too, and
/// another one when other parts are covered than before: who has only followed the batches sees
/// from the numbers then that something is missing. For one thread.
class SequenceTable {
 public:
  /// There is a new shape: all parts have changed.
  void reset(std::size_t parts);

  /// The part has changed, or one of its elements.
  void change(const ValueMark& mark);

  /// Sets which parts are covered, in ascending ranges that do not overlap.
  void cover(std::vector<PositionRange> ranges);

  /// Whether any part is covered.
  [[nodiscard]] bool isCovering() const { return !covered_.empty(); }

  /// The last number. All changes of parts that are not covered have at most this one.
  [[nodiscard]] std::uint64_t sequence();

  /// Whether a covered part waits for the next batch.
  [[nodiscard]] bool isPending() const { return !pending_.empty(); }

  struct Numbers {
    std::uint64_t sequence = 0;
    std::uint64_t previous = 0;
  };
  /// The numbers of the next batch.
  [[nodiscard]] Numbers beginBatch();
  /// The first part that waits.
  [[nodiscard]] ValueMark front() const {
    return {pending_.front(), pendingIndex_[pending_.front()]};
  }
  /// Removes the first part that waits, for the batch that was begun.
  [[nodiscard]] ValueMark take();

  /// Whether the part has changed after `since`, or waits.
  [[nodiscard]] bool isChangedSince(Position position, std::uint64_t since) const;

 private:
  [[nodiscard]] bool isCovered(Position position) const;
  void changeUncovered(Position position);
  /// Ends the number of the changes of parts that are not covered.
  void close();
  /// Gives such changes that have the number of a batch another one.
  void reveal();

  std::uint64_t sequence_ = 0;
  std::vector<Position> open_;  ///< not covered, and changed with the next number
  /// For each part whether it was not covered when it changed, and has the number of a batch.
  std::vector<bool> isHidden_;
  bool hasHidden_ = false;
  std::vector<std::uint64_t> changedAt_;
  std::vector<PositionRange> covered_;
  std::deque<Position> pending_;  ///< in the order of the first change
  /// What of the part waits; `ModelPartIndex_Void` for nothing.
  std::vector<ModelSrv::ModelPartIndex> pendingIndex_;
};

}  // namespace modelgate
