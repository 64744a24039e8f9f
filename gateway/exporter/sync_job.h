#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "gateway/exporter/sequence_table.h"
#include "gateway/exporter/served_tree.h"
#include "gateway/wire/values.h"

namespace modelgate {

/// The values for one `sync`, in batches of a bounded size that are made when they can be sent. All
/// have the sequence number of the first one: what changes meanwhile is in later batches. For one
/// thread.
class SyncJob {
 public:
  /// The values of a batch end with the one that exceeds that many bytes, or before one with which
  /// no message would hold them.
  static constexpr std::size_t batchSize = std::size_t{128} * 1024;

  /// For the parts in `range` that have changed since `since`, or all with 0. `numbers` has the
  /// epoch, the shape and the sequence number.
  SyncJob(std::shared_ptr<const ServedTree> tree, PositionRange range, std::uint64_t since,
          Batch numbers);

  /// The next batch, except its time. `sequences` are those of the tree.
  [[nodiscard]] Batch next(const SequenceTable& sequences);
  /// Whether the last batch has been made.
  [[nodiscard]] bool isComplete() const { return next_ >= range_.second; }

  [[nodiscard]] const ServedTree& tree() const { return *tree_; }

 private:
  std::shared_ptr<const ServedTree> tree_;
  PositionRange range_;
  std::uint64_t since_;
  Batch numbers_;
  Position next_;
};

}  // namespace modelgate
