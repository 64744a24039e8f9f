// The events of a watch, as they are sent.

#include <algorithm>
#include <utility>

#include "modelsrv/source/part_access.h"
#include "modelsrv/source/server_watch.h"
#include "modelsrv/source/session_watches.h"

namespace ModelSrv::internal {

namespace {

// The parts that are looked at for one event, at most: the work of one dispatch is bounded.
constexpr unsigned stepsAtOnce = 1000;

}  // namespace

ServerWatch::Taken ServerWatch::takeNext(std::uint16_t& type, std::vector<std::uint8_t>& payload,
                                         bool inDispatch) {
  // The structure may be about to change further.
  if (!inDispatch && (phase_ != Phase::running || !structure_.empty())) {
    return Taken::paused;
  }
  type = watchStructureEvent;
  bool finished = false;
  switch (phase_) {
    case Phase::begin:
      encodeWatchMark(terms_.number, WatchStructure::begin, payload);
      phase_ = top_ != nullptr ? Phase::firstWalk : Phase::complete;
      if (top_ != nullptr && PartAccess::isPublished(*top_)) {
        cursor_.begin(*top_);
      }
      return Taken::event;
    case Phase::firstWalk:
      if (const Taken taken = takeWalk(type, payload, finished); !finished) {
        return taken;
      }
      phase_ = Phase::complete;
      [[fallthrough]];
    case Phase::complete:
      encodeWatchMark(terms_.number, WatchStructure::complete, payload);
      phase_ = Phase::running;
      return Taken::event;
    case Phase::running:
      break;
  }
  if (!structure_.empty()) {
    if (const Taken taken = takeStructure(type, payload); taken != Taken::nothing) {
      return taken;
    }
  }
  return takeValue(type, payload, inDispatch);
}

void ServerWatch::popStructure() {
  structureBytes_ -=
      std::min(structureBytes_,
               bytesOfStructureChange + structure_.front().chain.capacity() * sizeof(ModelPartId));
  structure_.pop_front();
  accountForMemory();
}

/// `nothing` if no change of the structure is pending any more.
ServerWatch::Taken ServerWatch::takeStructure(std::uint16_t& type,
                                              std::vector<std::uint8_t>& payload) {
  while (!structure_.empty()) {
    StructureChange& change = structure_.front();
    if (change.part == nullptr) {
      encodeWatchRemoved(terms_.number, change.chain, payload);
      popStructure();
      return Taken::event;
    }
    // Another walk of the same part may wait already.
    if (!std::exchange(change.hasBegun, true)) {
      walks_.erase(change.part);
      if (PartAccess::isPublished(*change.part)) {
        cursor_.begin(*change.part);
      }
    }
    bool finished = false;
    if (const Taken taken = takeWalk(type, payload, finished); !finished) {
      return taken;
    }
    popStructure();
  }
  return Taken::nothing;
}

/// Reports the part that the cursor visits next, or sets `finished`.
ServerWatch::Taken ServerWatch::takeWalk(std::uint16_t& type, std::vector<std::uint8_t>& payload,
                                         bool& finished) {
  // The cursor looks at the nodes below the part where it began.
  if (cursor_.top() != nullptr && !PartAccess::isPublished(*cursor_.top())) {
    cursor_.end();
  }
  ModelPart* const part = cursor_.next(registry_->structureVersion());
  if (part == nullptr) {
    finished = true;
    return Taken::nothing;
  }
  if (!terms_.subtree) {
    cursor_.end();
  }
  if (WatchCounts::anyHandler() && part != top_ && PartAccess::subscribable(*part) &&
      PartAccess::hasWatchHandler(*part)) {
    owner_.programCalled();
    PartAccess::reportWatched(*part, true);
  }
  type = watchStructureEvent;
  encodeAdded(*part, payload);
  return Taken::event;
}

void ServerWatch::encodeAdded(ModelPart& part, std::vector<std::uint8_t>& payload) {
  WatchedValue value;
  value.index = terms_.index;
  const bool isNode = PartAccess::isNode(part);
  if (!isNode && (&part == top_ || PartAccess::subscribable(part))) {
    value.timeNs = owner_.share().system.realTimeNs();
    value.result = owner_.readValue(part, value.index);
    value.text = value.result == ModelRes_Success ? std::string_view(owner_.share().text)
                                                  : std::string_view();
  }
  encodeWatchAdded(terms_.number, part, isNode, value, payload);
}

ServerWatch::Taken ServerWatch::takeValue(std::uint16_t& type, std::vector<std::uint8_t>& payload,
                                          bool inDispatch) {
  for (unsigned steps = 0; !values_.isEmpty(); ++steps) {
    if (steps == stepsAtOnce) {
      return Taken::paused;
    }
    const PendingValues::Change change = values_.first();
    if (!PartAccess::isPublished(*change.part)) {
      // If it is shown again it is reported with its value.
      values_.pop(0);
      accountForMemory();
      continue;
    }
    // Reading the value of another class calls the program.
    if (!inDispatch && !PartAccess::isCacheable(*change.part)) {
      return Taken::paused;
    }
    const std::int64_t restsUntil = terms_.periodMs != 0 && owner_.hasPeriods()
                                        ? owner_.share().system.nowMs() + terms_.periodMs
                                        : 0;
    values_.pop(restsUntil);
    if (restsUntil != 0) {
      owner_.rests(*this, restsUntil);
    }
    accountForMemory();
    WatchedValue value{change.index, ModelRes_Success, change.timeNs, change.count, {}};
    value.result = owner_.readValue(*change.part, change.index);
    if (value.result == ModelRes_NoValue && PartAccess::isNode(*change.part)) {
      continue;
    }
    if (value.result == ModelRes_Success) {
      value.text = owner_.share().text;
    }
    type = watchValueEvent;
    encodeWatchValue(terms_.number, *change.part, value, payload);
    return Taken::event;
  }
  return Taken::nothing;
}

}  // namespace ModelSrv::internal
