#include "gateway/exporter/sync_job.h"

#include <utility>

namespace modelgate {

SyncJob::SyncJob(std::shared_ptr<const ServedTree> tree, PositionRange range, std::uint64_t since,
                 Batch numbers)
    : tree_(std::move(tree)),
      range_(range),
      since_(since),
      numbers_(std::move(numbers)),
      next_(range.first) {
  numbers_.previous = since;
}

Batch SyncJob::next(const SequenceTable& sequences) {
  Batch batch = numbers_;
  std::size_t size = 0;
  for (; next_ < range_.second && size < batchSize; ++next_) {
    if (tree_->index.isNode(next_) || (since_ > 0 && !sequences.isChangedSince(next_, since_))) {
      continue;
    }
    if (!tree_->values.readForBatch({next_, ModelSrv::ModelPartIndex_All}, batch.values, size)) {
      break;
    }
  }
  // Nothing but unchanged parts may be left.
  while (next_ < range_.second &&
         (tree_->index.isNode(next_) || (since_ > 0 && !sequences.isChangedSince(next_, since_)))) {
    ++next_;
  }
  return batch;
}

}  // namespace modelgate
