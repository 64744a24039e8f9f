#include "gateway/exporter/sequence_table.h"

#include <algorithm>

namespace modelgate {

using ModelSrv::ModelPartIndex;
using ModelSrv::ModelPartIndex_All;
using ModelSrv::ModelPartIndex_Void;

void SequenceTable::reset(std::size_t parts) {
  ++sequence_;
  open_.clear();
  isHidden_.assign(parts, false);
  hasHidden_ = false;
  changedAt_.assign(parts, sequence_);
  pendingIndex_.assign(parts, ModelPartIndex_Void);
  pending_.clear();
  covered_.clear();
}

bool SequenceTable::isCovered(Position position) const {
  const auto after = std::upper_bound(
      covered_.begin(), covered_.end(), position,
      [](Position wanted, const PositionRange& range) { return wanted < range.first; });
  return after != covered_.begin() && position < std::prev(after)->second;
}

void SequenceTable::change(const ValueMark& mark) {
  if (!isCovered(mark.position)) {
    return changeUncovered(mark.position);
  }
  ModelPartIndex& waiting = pendingIndex_[mark.position];
  if (waiting == ModelPartIndex_Void) {
    pending_.push_back(mark.position);
    waiting = mark.index;
  } else if (waiting != mark.index) {
    waiting = ModelPartIndex_All;
  }
}

void SequenceTable::changeUncovered(Position position) {
  if (changedAt_[position] <= sequence_) {
    changedAt_[position] = sequence_ + 1;
    open_.push_back(position);
  }
}

void SequenceTable::cover(std::vector<PositionRange> ranges) {
  if (ranges == covered_) {
    return;
  }
  covered_ = std::move(ranges);
  close();
  std::erase_if(pending_, [this](Position position) {
    if (isCovered(position)) {
      return false;
    }
    pendingIndex_[position] = ModelPartIndex_Void;
    changeUncovered(position);
    return true;
  });
  reveal();
  close();
}

void SequenceTable::close() {
  if (!open_.empty()) {
    open_.clear();
    ++sequence_;
  }
}

void SequenceTable::reveal() {
  for (Position position = 0; hasHidden_ && position < isHidden_.size(); ++position) {
    if (isHidden_[position]) {
      changeUncovered(position);
      isHidden_[position] = false;
    }
  }
  hasHidden_ = false;
}

std::uint64_t SequenceTable::sequence() {
  close();
  return sequence_;
}

SequenceTable::Numbers SequenceTable::beginBatch() {
  const std::uint64_t previous = sequence_;
  for (const Position position : open_) {
    isHidden_[position] = true;
    hasHidden_ = true;
  }
  open_.clear();
  return {++sequence_, previous};
}

ValueMark SequenceTable::take() {
  const Position position = pending_.front();
  pending_.pop_front();
  changedAt_[position] = sequence_;
  return {position, std::exchange(pendingIndex_[position], ModelPartIndex_Void)};
}

bool SequenceTable::isChangedSince(Position position, std::uint64_t since) const {
  return changedAt_[position] > since || pendingIndex_[position] != ModelPartIndex_Void;
}

}  // namespace modelgate
