#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "evtsrv/source/system.h"

/// Who is served next when several connections have work for the server.
///
/// A connection whose descriptor is ready is served at once while little else is to be done.
/// Otherwise it waits in a queue. The user whose connections have used the least time is next,
/// and of this user's connections the one that has used the least. A connection is served for
/// one turn, and waits again if it has more work.
///
/// That alone would let a client wait for one turn of each of the many connections that another
/// one has opened, since each of these has used less. So every second turn goes to the connection
/// that has not had a long turn for the longest time: clients that make short requests wait for few
/// others, and who floods comes after them however many connections it has. Everything here
/// requires the client mutex.
namespace EvtSrv::internal {

class TurnQueue;

/// The connections of one user.
struct TurnGroup {
  std::int64_t usedNs = 0;
  unsigned waiting = 0;         ///< how many of its connections are in the queue
  std::int64_t newcomerNs = 0;  ///< when one of its new connections was put first
};

/// What is served in turns: a connection, or a mailbox.
class TurnTaker {
 public:
  virtual ~TurnTaker() = default;

  /// Serves for one turn, under a `TurnQueue::Charge`; returns whether anything was
  /// dispatched. The turn has left the queue, and may be added again. May destroy it.
  virtual bool takeTurn() = 0;
};

/// The entry of a taker in a `TurnQueue`. Leaves the queue when it is destroyed.
class Turn {
 public:
  /// All arguments outlive this. May throw `std::bad_alloc`.
  Turn(TurnQueue& queue, TurnGroup& group, TurnTaker& taker);
  ~Turn();
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  friend class TurnQueue;

  TurnQueue& queue_;
  TurnGroup& group_;
  TurnTaker& taker_;
  std::int64_t usedNs_ = 0;
  std::int64_t lastLongNs_ = 0;  ///< when its last long turn ended, or it was new
  bool waiting_ = false;
};

class TurnQueue {
 public:
  /// How much of one connection is served before the turn of the next.
  static constexpr unsigned requestsPerTurn = 32;
  static constexpr std::size_t bytesPerTurn = std::size_t{64} * 1024;
  static constexpr std::int64_t turnNs = 500'000;
  /// A turn that took longer is a long one.
  static constexpr std::int64_t longTurnNs = 100'000;
  /// How long turns are taken before new events are looked for.
  static constexpr std::int64_t sliceNs = 1'000'000;

  /// What a new connection is charged with at its beginning, except one of a user in so much time.
  static constexpr std::int64_t newcomerNs = 200'000;
  static constexpr std::int64_t newcomerIntervalNs = 10'000'000;
  /// How much less than those that always have work that one has used, and one that has delayed no
  /// client: just so much that they are first, in this order.
  static constexpr std::int64_t newcomerLeadNs = 1;
  static constexpr std::int64_t settledLeadNs = 2;
  /// The most that a client, and its user, can have used more than the others by the short turns
  /// that it had because its requests are short: after a long one it waits for no more of each.
  static constexpr std::int64_t preferredLagNs = 200'000;
  static constexpr std::int64_t preferredGroupLagNs = 20'000'000;

  explicit TurnQueue(System& system) : system_(system) {}
  TurnQueue(const TurnQueue&) = delete;
  TurnQueue& operator=(const TurnQueue&) = delete;

  /// Whether a connection may be served at once, without a turn.
  [[nodiscard]] bool mayServeNow();

  /// Lets `turn` wait, if it does not do so already.
  void add(Turn& turn);

  /// The nanoseconds from the beginning of the dispatch in progress to the last time that was
  /// measured. Only if several descriptors are ready.
  [[nodiscard]] std::int64_t sinceBegin() const { return turnBegin_ - begin_; }

  /// Whether the turn in progress has used up its time. Begins to measure it if that was not
  /// necessary so far.
  [[nodiscard]] bool turnExpired();

  /// Takes turns for `sliceNs`, at least one if any has waited since before this dispatch; returns
  /// whether anything was dispatched.
  bool run();

  [[nodiscard]] bool empty() const { return waiting_.empty(); }

  /// Whether `group` waits after one that has used nothing.
  [[nodiscard]] bool isBehind(const TurnGroup& group) const {
    return group.usedNs > std::max<std::int64_t>(0, groupFloorNs_ - sliceNs);
  }

  /// One dispatch of `events` ready descriptors. Dispatches may be nested.
  class Dispatch {
   public:
    Dispatch(TurnQueue& queue, std::size_t events);
    ~Dispatch();
    Dispatch(const Dispatch&) = delete;
    Dispatch& operator=(const Dispatch&) = delete;

   private:
    TurnQueue& queue_;
    bool contended_;
    bool hadWaiting_;
    std::int64_t begin_;
    std::int64_t turnBegin_;
    std::int64_t threadTime_;
    std::int64_t threadTimeAt_;
    bool preferred_;
  };

  /// Charges `turn` with the time until the end of a block. Reads no clock if no other has
  /// work.
  class Charge {
   public:
    Charge(TurnQueue& queue, Turn& turn);
    ~Charge();
    Charge(const Charge&) = delete;
    Charge& operator=(const Charge&) = delete;

   private:
    TurnQueue& queue_;
    Turn& turn_;
  };

 private:
  friend class Turn;

  void enter();
  std::int64_t firstUse(TurnGroup& group, std::int64_t now);
  void leave(Turn& turn);
  std::int64_t usedUntil(std::int64_t now);
  void charge(Turn& turn);
  void raiseFloors(const Turn& turn);
  Turn& takeNext();

  System& system_;
  std::vector<Turn*> waiting_;  ///< in the order in which they came
  std::size_t members_ = 0;     ///< the capacity of `waiting_` is at least this
  std::int64_t groupFloorNs_ = 0;
  std::int64_t turnFloorNs_ = 0;
  bool prefersShort_ = false;  ///< of two turns in a row, for one

  // Of the dispatch in progress. Times are 0 if they are not measured.
  bool contended_ = false;
  bool hadWaiting_ = false;        ///< at its beginning
  std::int64_t begin_ = 0;         ///< when it began
  std::int64_t turnBegin_ = 0;     ///< when the turn in progress began
  std::int64_t threadTime_ = 0;    ///< the thread's processor time when it was last read
  std::int64_t threadTimeAt_ = 0;  ///< when that was
  bool preferred_ = false;         ///< the turn in progress came first as its requests are short
};

}  // namespace EvtSrv::internal
