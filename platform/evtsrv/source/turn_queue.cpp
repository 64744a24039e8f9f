#include "evtsrv/source/turn_queue.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace EvtSrv::internal {

namespace {

/// Adds `more` to `usedNs`, but not beyond `limit`.
void addUpTo(std::int64_t& usedNs, std::int64_t more, std::int64_t limit) {
  usedNs = std::max(usedNs, std::min(usedNs + more, limit));
}

}  // namespace

Turn::Turn(TurnQueue& queue, TurnGroup& group, TurnTaker& taker)
    : queue_(queue), group_(group), taker_(taker) {
  queue_.enter();
  lastLongNs_ = queue_.system_.nowNs();
  usedNs_ = queue_.firstUse(group, lastLongNs_);
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
std::int64_t TurnQueue::firstUse(TurnGroup& group, std::int64_t now) {
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

/// Who waits has used at least as much as the one that is served.
void TurnQueue::raiseFloors(const Turn& turn) {
  groupFloorNs_ = std::max(groupFloorNs_, turn.group_.usedNs);
  turnFloorNs_ = std::max(turnFloorNs_, turn.usedNs_);
}

Turn& TurnQueue::takeNext() {
  prefersShort_ = !prefersShort_;
  const auto isBefore = [this](const Turn* left, const Turn* right) {
    if (prefersShort_ && left->lastLongNs_ != right->lastLongNs_) {
      return left->lastLongNs_ < right->lastLongNs_;
    }
    return std::tie(left->group_.usedNs, left->usedNs_) <
           std::tie(right->group_.usedNs, right->usedNs_);
  };
  const auto next = std::min_element(waiting_.begin(), waiting_.end(), isBefore);
  Turn& turn = **next;
  waiting_.erase(next);
  turn.waiting_ = false;
  --turn.group_.waiting;
  preferred_ = prefersShort_;
  if (!preferred_) {
    raiseFloors(turn);
  }
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
  const std::int64_t begin = system_.nowNs();
  if (contended_ && !hadWaiting_ && begin - begin_ >= sliceNs) {
    // This dispatch was long already. Who is ready by now may come first.
    return false;
  }
  contended_ = true;
  threadTime_ = system_.threadTimeNs();
  threadTimeAt_ = begin;
  for (turnBegin_ = begin; !waiting_.empty() && turnBegin_ - begin < sliceNs;
       turnBegin_ = system_.nowNs()) {
    dispatched = takeNext().taker_.takeTurn() || dispatched;
  }
  return dispatched;
}

TurnQueue::Dispatch::Dispatch(TurnQueue& queue, std::size_t events)
    : queue_(queue),
      contended_(queue.contended_),
      hadWaiting_(queue.hadWaiting_),
      begin_(queue.begin_),
      turnBegin_(queue.turnBegin_),
      threadTime_(queue.threadTime_),
      threadTimeAt_(queue.threadTimeAt_),
      preferred_(queue.preferred_) {
  queue.hadWaiting_ = !queue.empty();
  queue.contended_ = events > 1 || queue.hadWaiting_;
  queue.begin_ = queue.contended_ ? queue.system_.nowNs() : 0;
  queue.turnBegin_ = queue.begin_;
  queue.threadTime_ = 0;
  queue.threadTimeAt_ = 0;
  queue.preferred_ = false;
}

TurnQueue::Dispatch::~Dispatch() {
  queue_.contended_ = contended_;
  queue_.hadWaiting_ = hadWaiting_;
  queue_.begin_ = begin_;
  queue_.turnBegin_ = turnBegin_;
  queue_.threadTime_ = threadTime_;
  queue_.threadTimeAt_ = threadTimeAt_;
  queue_.preferred_ = preferred_;
}

TurnQueue::Charge::Charge(TurnQueue& queue, Turn& turn) : queue_(queue), turn_(turn) {}

TurnQueue::Charge::~Charge() {
  if (queue_.contended_) {
    queue_.charge(turn_);
  } else {
    // This has delayed no other: it is no newcomer any more.
    turn_.usedNs_ = std::min(turn_.usedNs_, queue_.turnFloorNs_ - settledLeadNs);
  }
}

void TurnQueue::charge(Turn& turn) {
  const std::int64_t now = system_.nowNs();
  const std::int64_t used = usedUntil(now);
  if (waiting_.empty()) {
    raiseFloors(turn);
  }
  if (preferred_ && used <= longTurnNs) {
    addUpTo(turn.usedNs_, used, turnFloorNs_ + preferredLagNs);
    addUpTo(turn.group_.usedNs, used, groupFloorNs_ + preferredGroupLagNs);
  } else {
    turn.usedNs_ += used;
    turn.group_.usedNs += used;
  }
  turnBegin_ = now;
  // What is served at once may have waited for a processor.
  if (used > longTurnNs && threadTime_ != 0) {
    turn.lastLongNs_ = now;
  }
}

/// What the turn in progress has used. If it has taken long, the thread may have waited for a
/// processor: no connection is charged for that.
std::int64_t TurnQueue::usedUntil(std::int64_t now) {
  const std::int64_t taken = now - turnBegin_;
  if (taken <= longTurnNs || threadTime_ == 0) {
    return std::min(taken, turnNs);
  }
  const std::int64_t threadTime = system_.threadTimeNs();
  const std::int64_t ofEarlierTurns = turnBegin_ - threadTimeAt_;
  const std::int64_t used = threadTime - threadTime_ - ofEarlierTurns;
  threadTime_ = threadTime;
  threadTimeAt_ = now;
  return std::clamp<std::int64_t>(used, 0, taken);
}

}  // namespace EvtSrv::internal
