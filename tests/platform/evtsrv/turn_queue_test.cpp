#include "evtsrv/source/turn_queue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <functional>

#include "evtsrv/source/accounts.h"
#include "tests/platform/evtsrv/evtsrv_fixture.h"

namespace EvtSrv::internal {
namespace {

/// A system whose time is set.
class SetTime : public PosixSystem {
 public:
  std::int64_t nowNs() override { return now; }
  std::int64_t threadTimeNs() override { return now - waited; }
  std::int64_t waited = 0;  ///< for a processor
  std::int64_t now = 1;
};

/// Takes turns of a fixed length.
class Taker : public TurnTaker {
 public:
  Taker(TurnQueue& queue, TurnGroup& group, SetTime& system, std::int64_t length)
      : queue_(queue), system_(system), length_(length), turn_(queue, group, *this) {}
  bool takeTurn() override {
    const TurnQueue::Charge charge(queue_, turn_);
    system_.now += length_;
    if (onTurn) {
      onTurn();
    }
    ++turns;
    if (hasMore) {
      queue_.add(turn_);
    }
    return true;
  }
  void add() { queue_.add(turn_); }
  std::function<void()> onTurn;
  int turns = 0;
  bool hasMore = false;

 private:
  TurnQueue& queue_;
  SetTime& system_;
  std::int64_t length_;
  Turn turn_;
};

constexpr std::int64_t msNs = 1'000'000;

class Turns : public testing::Test {
 protected:
  /// Runs the queue as one dispatch.
  void run() {
    const TurnQueue::Dispatch dispatch(queue, 1);
    queue.run();
  }

  SetTime system;
  TurnQueue queue{system};
  TurnGroup one;
  TurnGroup other;
};

TEST_F(Turns, WhoHasUsedLeastIsNext) {
  Taker heavy(queue, one, system, 5 * msNs);
  Taker light(queue, one, system, msNs / 100);
  heavy.hasMore = true;
  heavy.add();
  run();
  light.add();
  run();
  EXPECT_EQ(light.turns, 1);
  EXPECT_EQ(heavy.turns, 2);
}

TEST_F(Turns, TheUserThatHasUsedLeastIsNextHoweverManyConnectionsTheOtherHas) {
  std::deque<Taker> heavy;
  for (int i = 0; i < 100; ++i) {
    heavy.emplace_back(queue, one, system, 5 * msNs);
    heavy.back().add();
  }
  run();
  Taker light(queue, other, system, msNs / 100);
  light.add();
  const std::int64_t before = system.now;
  while (light.turns == 0) {
    run();
  }
  EXPECT_LE(system.now - before, 10 * msNs);
}

TEST_F(Turns, WhoSleptHasSavedNothingUp) {
  Taker steady(queue, one, system, msNs);
  Taker sleeper(queue, one, system, msNs);
  steady.hasMore = true;
  steady.add();
  for (int i = 0; i < 100; ++i) {
    run();
  }
  sleeper.hasMore = true;
  sleeper.add();
  const int before = steady.turns;
  for (int i = 0; i < 20; ++i) {
    run();
  }
  EXPECT_GE(steady.turns - before, 8);
  EXPECT_GE(sleeper.turns, 8);
}

TEST_F(Turns, WhoMadeManyShortRequestsIsServedAfterALongOneToo) {
  Taker first(queue, one, system, msNs / 100);
  system.now += msNs;
  std::deque<Taker> others;
  first.hasMore = true;
  first.add();
  for (int i = 0; i < 20; ++i) {
    others.emplace_back(queue, one, system, msNs / 100);
    others.back().hasMore = true;
    others.back().add();
  }
  // Every second turn is of the first, which has had no long turn for the longest time.
  while (first.turns < 10'000) {
    run();
  }
  first.onTurn = [&] {
    system.now += msNs;
    first.onTurn = nullptr;
  };
  while (first.onTurn) {
    run();
  }
  const std::int64_t longTurn = system.now;
  for (const int before = first.turns; first.turns == before;) {
    run();
  }
  EXPECT_LE(system.now - longTurn, 50 * msNs);
}

TEST_F(Turns, NoClientIsChargedForTheTimeThatTheServerHasWaitedForAProcessor) {
  Taker delayed(queue, one, system, msNs / 100);
  Taker busy(queue, one, system, msNs);
  busy.hasMore = true;
  busy.add();
  run();
  delayed.onTurn = [this] {
    system.now += 100 * msNs;
    system.waited += 100 * msNs;
  };
  for (int i = 1; i <= 5; ++i) {
    delayed.add();
    run();
    EXPECT_EQ(delayed.turns, i);
  }
}

TEST_F(Turns, NewcomersComeAfterThoseThatDelayedNoOther) {
  Taker settled(queue, one, system, msNs / 100);
  {
    const TurnQueue::Dispatch dispatch(queue, 1);
    settled.takeTurn();
  }
  system.now += 1000 * msNs;
  std::deque<Taker> newcomers;
  for (int i = 0; i < 100; ++i) {
    newcomers.emplace_back(queue, one, system, msNs);
    newcomers.back().add();
  }
  settled.add();
  run();
  EXPECT_EQ(settled.turns, 2);
}

TEST_F(Turns, ANewcomerDoesNotWaitForEachOfManyOthers) {
  system.now += 1000 * msNs;
  std::deque<Taker> busy;
  for (int i = 0; i < 64; ++i) {
    busy.emplace_back(queue, one, system, msNs / 2);
    busy.back().hasMore = true;
    busy.back().add();
  }
  for (int i = 0; i < 100; ++i) {
    run();
  }
  Taker newcomer(queue, one, system, msNs / 100);
  newcomer.add();
  const std::int64_t before = system.now;
  while (newcomer.turns == 0) {
    run();
  }
  EXPECT_LE(system.now - before, 2 * msNs);
}

/// A client that makes a short request every millisecond, beside others.
class ShortRequests : public Turns {
 protected:
  /// One request: the longest time from when it came until it was served.
  void request() {
    system.now += msNs;
    client.add();
    const int before = client.turns;
    const std::int64_t begin = system.now;
    while (client.turns == before) {
      run();
    }
    longest = std::max(longest, system.now - begin);
  }
  std::deque<Taker>& connect(int count, std::int64_t length) {
    system.now += msNs;
    for (int i = 0; i < count; ++i) {
      others.emplace_back(queue, one, system, length);
    }
    return others;
  }

  Taker client{queue, one, system, msNs / 50};
  std::deque<Taker> others;
  std::int64_t longest = 0;
};

TEST_F(ShortRequests, DoNotWaitForATurnOfEachNewConnection) {
  system.now += 1000 * msNs;
  // It has used more than others that have just begun to compete.
  for (int i = 0; i < 1000; ++i) {
    const TurnQueue::Dispatch dispatch(queue, 2);
    client.takeTurn();
  }
  for (Taker& each : connect(200, msNs / 2)) {
    each.add();
  }
  for (int i = 0; i < 100; ++i) {
    request();
  }
  EXPECT_LE(longest, 4 * msNs);
}

TEST_F(ShortRequests, DoNotWaitForATurnOfEachConnectionThatWasIdle) {
  connect(200, msNs / 2);
  for (int round = 0; round < 20; ++round) {
    system.now += 100 * msNs;
    for (Taker& each : others) {
      each.add();
    }
    for (int i = 0; i < 20; ++i) {
      request();
    }
    while (!queue.empty()) {
      run();
    }
  }
  EXPECT_LE(longest, 4 * msNs);
}

TEST_F(ShortRequests, AreShortAlsoIfTheServerHasWaitedForAProcessor) {
  connect(200, msNs / 3);
  client.onTurn = [this] {
    system.now += 2 * msNs;
    system.waited += 2 * msNs;
  };
  for (int i = 0; i < 100; ++i) {
    for (Taker& each : others) {
      each.add();
    }
    request();
  }
  EXPECT_LE(longest, 6 * msNs);
}

TEST_F(ShortRequests, OfManyClientsKeepNoOtherWaiting) {
  Taker heavy(queue, one, system, msNs);
  heavy.hasMore = true;
  for (Taker& each : connect(256, msNs / 50)) {
    each.hasMore = true;
    each.add();
  }
  heavy.add();
  const std::int64_t begin = system.now;
  while (system.now - begin < 1000 * msNs) {
    run();
  }
  EXPECT_GE(heavy.turns, 2);
  for (const Taker& each : others) {
    EXPECT_GE(each.turns, 10);
  }
}

TEST_F(Turns, ALongDispatchTakesNoTurnsOfThoseThatBeganToWaitInIt) {
  Taker waiting(queue, one, system, msNs);
  {
    const TurnQueue::Dispatch dispatch(queue, 2);
    system.now += 5 * msNs;
    waiting.add();
    queue.run();
    EXPECT_EQ(waiting.turns, 0);
  }
  run();
  EXPECT_EQ(waiting.turns, 1);
}

using AccountsOfUsers = Turns;

TEST_F(AccountsOfUsers, KeepTheTimeThatWasUsedWithoutSessions) {
  const auto accounts = std::make_shared<Accounts>(&queue);
  const auto use = [&](SessionAccount& account, std::int64_t time) {
    Taker taker(queue, account.turns(), system, time);
    taker.add();
    run();
  };
  SessionAccount others(accounts, 2);
  use(others, msNs);
  {
    SessionAccount session(accounts, 1);
    use(session, 50 * msNs);
  }
  {
    SessionAccount session(accounts, 1);
    Taker returned(queue, session.turns(), system, msNs);
    Taker honest(queue, others.turns(), system, msNs);
    returned.add();
    honest.add();
    run();
    EXPECT_EQ(honest.turns, 1);
    EXPECT_EQ(returned.turns, 0);
  }
  // When the others have used as much, nothing is left of that.
  use(others, 100 * msNs);
  use(others, msNs);
  SessionAccount third(accounts, 3);
  SessionAccount session(accounts, 1);
  EXPECT_EQ(session.turns().usedNs, 0);
}

TEST_F(Turns, ATakerThatIsDestroyedLeaves) {
  {
    Taker taker(queue, one, system, msNs);
    taker.add();
    taker.add();
    EXPECT_FALSE(queue.empty());
  }
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(one.waiting, 0U);
}

}  // namespace
}  // namespace EvtSrv::internal
