#include "evtsrv/source/turn_queue.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace EvtSrv::internal {

Turn::Turn(TurnQueue& queue, TurnGroup& group, TurnTaker& taker)
    : queue_(queue), group_(group), taker_(taker) {
  queue_.enter();
  usedNs_ = queue_.firstUse(group);
}

Turn::~Turn() {
  queue_.leave(*this);
}

void TurnQueue::enter() {
  // So that add() allocates nothing.
  if (members_ == waiting_.capacity()) {
    waiting_.reserve(std::max<std::size_t>(8, members_ * 2));
  }
  ++members_;
}

/// A newcomer waits after those that have used little, so that connecting often gains nothing.
/// But now and then one of a user does not, or else it would wait for a turn of each of the others.
std::int64_t TurnQueue::firstUse(TurnGroup& group) {
  const std::int64_t now = system_.nowNs();
  if (now - group.newcomerNs < newcomerIntervalNs) {
    return turnFloorNs_ + newcomerNs;
  }
  group.newcomerNs = now;
  return turnFloorNs_ - newcomerLeadNs;
}

void TurnQueue::leave(Turn& turn) {
  --members_;
  if (turn.waiting_) {
    std::erase(waiting_, &turn);
    --turn.group_.waiting;
  }
}

bool TurnQueue::mayServeNow() {
  return waiting_.empty() && (!contended_ || turnBegin_ - begin_ < turnNs);
}

void TurnQueue::add(Turn& turn) {
  if (turn.waiting_) {
    return;
  }
  turn.waiting_ = true;
  // Who had no work for a while has saved no time up: its next requests would delay the others.
  turn.usedNs_ = std::max(turn.usedNs_, turnFloorNs_ - sliceNs);
  if (turn.group_.waiting++ == 0) {
    turn.group_.usedNs = std::max(turn.group_.usedNs, groupFloorNs_ - sliceNs);
  }
  waiting_.push_back(&turn);
}

Turn& TurnQueue::takeNext() {
  const auto next =
      std::min_element(waiting_.begin(), waiting_.end(), [](const Turn* left, const Turn* right) {
        return std::tie(left->group_.usedNs, left->usedNs_) <
               std::tie(right->group_.usedNs, right->usedNs_);
      });
  Turn& turn = **next;
  waiting_.erase(next);
  turn.waiting_ = false;
  --turn.group_.waiting;
  groupFloorNs_ = std::max(groupFloorNs_, turn.group_.usedNs);
  turnFloorNs_ = std::max(turnFloorNs_, turn.usedNs_);
  return turn;
}

bool TurnQueue::turnExpired() {
  const std::int64_t now = system_.nowNs();
  if (turnBegin_ == 0) {
    turnBegin_ = now;
  }
  return now - turnBegin_ >= turnNs;
}

bool TurnQueue::run() {
  if (waiting_.empty()) {
    return false;
  }
  bool dispatched = false;
  contended_ = true;
  const std::int64_t begin = system_.nowNs();
  threadTime_ = system_.threadTimeNs();
  for (turnBegin_ = begin; !waiting_.empty() && turnBegin_ - begin < sliceNs;
       turnBegin_ = system_.nowNs()) {
    dispatched = takeNext().taker_.takeTurn() || dispatched;
  }
  return dispatched;
}

TurnQueue::Dispatch::Dispatch(TurnQueue& queue, std::size_t events)
    : queue_(queue),
      contended_(queue.contended_),
      begin_(queue.begin_),
      turnBegin_(queue.turnBegin_),
      threadTime_(queue.threadTime_) {
  queue.contended_ = events > 1 || !queue.empty();
  queue.begin_ = queue.contended_ ? queue.system_.nowNs() : 0;
  queue.turnBegin_ = queue.begin_;
  queue.threadTime_ = 0;
}

TurnQueue::Dispatch::~Dispatch() {
  queue_.contended_ = contended_;
  queue_.begin_ = begin_;
  queue_.turnBegin_ = turnBegin_;
  queue_.threadTime_ = threadTime_;
}

TurnQueue::Charge::Charge(TurnQueue& queue, Turn& turn) : queue_(queue), turn_(turn) {}

TurnQueue::Charge::~Charge() {
  if (queue_.contended_) {
    const std::int64_t now = queue_.system_.nowNs();
    const std::int64_t used = queue_.usedUntil(now);
    turn_.usedNs_ += used;
    turn_.group_.usedNs += used;
    queue_.turnBegin_ = now;
  } else {
    // This has delayed no other: it is no newcomer any more.
    turn_.usedNs_ = std::min(turn_.usedNs_, queue_.turnFloorNs_ - settledLeadNs);
  }
}

/// What the turn in progress has used. If it has taken long, the thread may have waited for a
/// processor: no connection is charged for that.
std::int64_t TurnQueue::usedUntil(std::int64_t now) {
  const std::int64_t taken = now - turnBegin_;
  if (taken <= turnNs) {
    return taken;
  }
  if (threadTime_ == 0) {
    return turnNs;
  }
  const std::int64_t threadTime = system_.threadTimeNs();
  return std::min(taken, threadTime - std::exchange(threadTime_, threadTime));
}

}  // namespace EvtSrv::internal
