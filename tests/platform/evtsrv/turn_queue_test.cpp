#include "evtsrv/source/turn_queue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <functional>

#include "evtsrv/source/accounts.h"
#include "tests/platform/evtsrv/evtsrv_fixture.h"
#include "tests/platform/evtsrv/raw_client.h"

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

/// A server whose requests take 100 microseconds, and two clients.
class Fairness : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(server.start(name), EvtRes_Success);
    server.port.onRequest = [this] {
      const std::int64_t end = server.system.nowNs() + 100'000;
      while (server.system.nowNs() < end) {
      }
    };
    for (RawClient* client : {&flooder, &honest}) {
      client->makePipes();
      client->writeToMailbox(name, client->hello());
      server.serveAll();
      // Who has made a request that delayed no client is no newcomer.
      client->writeRequest(frame(FrameKind::request, 6, 1, ""));
      server.serveAll();
      RawClient::readAll(client->reply);
    }
    server.port.handled = 0;
  }
  void flood(int requests) const {
    Bytes all;
    for (int i = 0; i < requests; ++i) {
      const Bytes one = frame(FrameKind::request, 5, 1, "");
      all.insert(all.end(), one.begin(), one.end());
    }
    flooder.writeRequest(all);
  }

  std::string name = uniquePort();
  EchoServer server;
  RawClient flooder;
  RawClient honest;
};

TEST_F(Fairness, AConnectionIsServedBetweenThePipelinedRequestsOfAnother) {
  flood(1000);
  static_cast<void>(server.core.receive(0));
  honest.writeRequest(frame(FrameKind::request, 7, 9, "me too"));
  static_cast<void>(server.core.receive(0));
  EXPECT_EQ(RawClient::readAll(honest.reply), frame(FrameKind::reply, 7, 9, "me too"));
  EXPECT_LT(server.port.handled, 100);
  server.serveAll();
  EXPECT_EQ(server.port.handled, 1001) << "what was read stays queued";
}

TEST_F(Fairness, TheManagerDoesNotSleepWhileTurnsWait) {
  flood(500);
  while (server.port.handled < 500) {
    ASSERT_EQ(server.core.receive(10'000), EvtRes_Success);
  }
  EXPECT_EQ(server.core.receive(0), EvtRes_Timeout);
}

TEST_F(Fairness, AConnectionThatEndsWithRequestsQueuedIsClosed) {
  flood(1000);
  static_cast<void>(server.core.receive(0));
  ::close(flooder.reply);
  flooder.reply = -1;
  server.serveAll();
  EXPECT_EQ(server.connectionCount(), 1U);
  EXPECT_LT(server.port.handled, 200);
}

}  // namespace
}  // namespace EvtSrv::internal
