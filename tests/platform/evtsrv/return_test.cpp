#include <gmock/gmock.h>

#include <chrono>

#include "tests/platform/evtsrv/return_fixture.h"

// A client's connection after a loss: the dispatches of its manager make it again.

namespace EvtSrv::internal {
namespace {

using namespace std::chrono_literals;

TEST_F(Return, OfAStoppedServerIsNoticedByADispatch) {
  server.reset();
  ASSERT_TRUE(client.loop.runUntil([&] { return client.losses == 1; }));
  EXPECT_FALSE(client.isOpen());
  startServer();
  ASSERT_TRUE(returned(1));
  EXPECT_EQ(client.request(), EvtRes_Success);
  EXPECT_EQ(client.losses, 1);
}

TEST_F(Return, OfAKilledServerIsNoticedAlthoughItsMailboxStayed) {
  ASSERT_NO_FATAL_FAILURE(killServer());
  client.loop.runUntilQuiet(150ms);
  EXPECT_EQ(client.losses, 1);
  startServer();
  ASSERT_TRUE(returned(1));
  EXPECT_EQ(client.request(), EvtRes_Success);
}

TEST_F(Return, OfAServerBeforeTheFirstDispatchIsNoticed) {
  server.reset();
  startServer();
  ASSERT_TRUE(returned(1));
  EXPECT_EQ(client.losses, 1);
}

TEST_F(Return, IsNoticedAgainAndAgain) {
  for (int i = 1; i <= 3; ++i) {
    server.reset();
    startServer();
    ASSERT_TRUE(returned(i));
  }
  EXPECT_EQ(client.losses, 3);
}

TEST_F(Return, CostsNothingWhileTheServerIsAway) {
  ASSERT_NO_FATAL_FAILURE(killServer());
  client.loop.runUntilQuiet(200ms);
  const int calls = client.system.calls;
  const int attempts = static_cast<int>(client.system.made.size());
  EXPECT_TRUE(isFew(client.loop.runFor(300ms)));
  EXPECT_EQ(static_cast<int>(client.system.made.size()), attempts) << "no handshake is tried";
  EXPECT_TRUE(isFew((client.system.calls - calls) / 5));
}

TEST_F(Return, LeavesNoDescriptorOpen) {
  const std::size_t before = openDescriptors();
  server.reset();
  ASSERT_TRUE(client.loop.runUntil([&] { return client.losses == 1; }));
  client.loop.runUntilQuiet(150ms);
  startServer();
  ASSERT_TRUE(returned(1));
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Return, EndsWithTheConnectionThatTheProgramCloses) {
  server.reset();
  ASSERT_TRUE(client.loop.runUntil([&] { return client.losses == 1; }));
  client.loop.runUntilQuiet(150ms);
  const std::size_t whileLost = openDescriptors();
  client.close();
  EXPECT_LT(openDescriptors(), whileLost) << "watch and timer are closed";
  startServer();
  client.loop.runUntilQuiet(150ms);
  EXPECT_EQ(client.returns, 0);
  EXPECT_EQ(server->connectionCount(), 0U);
}

TEST_F(Return, DoesNotHappenIfTheManagerDoesNotReconnect) {
  ReturningClient other(false);
  ASSERT_EQ(other.connect(name), EvtRes_Success);
  server.reset();
  startServer();
  EXPECT_LT(other.loop.runUntilQuiet(150ms), 10);
  EXPECT_EQ(other.losses, 1);
  EXPECT_EQ(other.returns, 0);
  EXPECT_FALSE(other.isOpen());
}

TEST_F(Return, NeverWaitsForAServerThatDoesNotServe) {
  server->stopPumping();
  server->recreate();
  ASSERT_EQ(server->start(name), EvtRes_Success);
  const auto start = std::chrono::steady_clock::now();
  client.loop.runUntilQuiet(300ms);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
  EXPECT_TRUE(isFew(client.loop.runFor(200ms))) << "the hello waits";
  EXPECT_EQ(client.request(), EvtRes_Stalled);
  server->pump();
  ASSERT_TRUE(returned(1));
  EXPECT_EQ(client.request(), EvtRes_Success);
}

TEST_F(Return, IsAwaitedByARequestWhileTheHandshakeIsUnderWay) {
  server->stopPumping();
  server->recreate();
  ASSERT_EQ(server->start(name), EvtRes_Success);
  client.loop.runUntilQuiet(300ms);
  client.system.freezeTime();
  client.system.whileWaiting = [&] { server->serveAll(); };
  bool renewed = false;
  EXPECT_EQ(client.resume(renewed), EvtRes_Success);
  EXPECT_TRUE(renewed);
  EXPECT_EQ(client.returns, 0) << "the request knows it";
  client.loop.runUntilQuiet();
  EXPECT_EQ(client.returns, 0);
  EXPECT_EQ(client.request(), EvtRes_Success);
}

TEST_F(Return, IsAwaitedByOneRequestOnly) {
  server->stopPumping();
  server->recreate();
  ASSERT_EQ(server->start(name), EvtRes_Success);
  client.loop.runUntilQuiet(300ms);
  client.system.freezeTime();
  int waits = 0;
  client.system.whileWaiting = [&] { ++waits; };
  bool renewed = false;
  EXPECT_EQ(client.resume(renewed), EvtRes_Stalled);
  EXPECT_EQ(client.resume(renewed), EvtRes_Stalled);
  EXPECT_EQ(waits, 1);
  server->serveAll();
  ASSERT_TRUE(returned(1)) << "the dispatches still notice the welcome";
}

TEST_F(Return, IsNoticedByADispatchAfterARequestWaitedInVain) {
  server->stopPumping();
  server->recreate();
  ASSERT_EQ(server->start(name), EvtRes_Success);
  EXPECT_EQ(client.request(), EvtRes_Closed);
  client.system.freezeTime();
  bool renewed = false;
  EXPECT_EQ(client.resume(renewed), EvtRes_Timeout);
  server->pump();
  ASSERT_TRUE(returned(1));
}

TEST_F(Return, OfAServerThatRefusesIsTriedWithGrowingDelays) {
  server.reset();
  server.emplace();
  server->port.refusesClients = true;
  std::vector<std::chrono::steady_clock::time_point> attempts;
  std::mutex mutex;
  server->port.onOpen = [&] {
    const std::lock_guard lock(mutex);
    attempts.push_back(std::chrono::steady_clock::now());
  };
  ASSERT_EQ(server->start(name), EvtRes_Success);
  server->pump();
  ASSERT_TRUE(client.loop.runUntil([&] {
    const std::lock_guard lock(mutex);
    return attempts.size() >= 4;
  }));
  EXPECT_TRUE(isFew(client.loop.wakeUps() / 3));
  // 0.2, 0.4 and 0.8 s, since the lost connection did not last, either. The server may notice
  // an attempt late.
  EXPECT_GE(attempts[3] - attempts[0], 1s);
  EXPECT_GE(attempts[3] - attempts[2], 400ms);
}

TEST_F(Return, IsTriedByTheTimerIfTheUserHasTooManyWatches) {
  client.system.failNext("createWatch", -EMFILE, 0, 1000);
  server.reset();
  ASSERT_TRUE(client.loop.runUntil([&] { return client.losses == 1; }));
  EXPECT_TRUE(isFew(client.loop.runFor(400ms)));
  startServer();
  ASSERT_TRUE(returned(1));
}

class ReturnAfterALateWelcome : public Return {
 protected:
  /// A request finds the loss, and another one waits in vain for a server that hangs.
  void SetUp() override {
    Return::SetUp();
    server->stopPumping();
    server->recreate();
    ASSERT_EQ(server->start(name), EvtRes_Success);
    EXPECT_EQ(client.request(), EvtRes_Closed);
    client.system.freezeTime();
  }
  void waitInVain() {
    bool renewed = false;
    EXPECT_EQ(client.resume(renewed), EvtRes_Timeout);
    client.loop.runUntilQuiet();
    EXPECT_EQ(client.losses, 1);
  }
};

TEST_F(ReturnAfterALateWelcome, IsNoticedIfTheServerDiesMeanwhile) {
  waitInVain();
  server.reset();
  client.loop.runUntilQuiet();
  startServer();
  ASSERT_TRUE(returned(1));
  EXPECT_TRUE(client.isOpen());
}

TEST_F(ReturnAfterALateWelcome, IsTriedAgainIfTheServerRefuses) {
  waitInVain();
  server->port.onOpen = [this, opens = 0]() mutable { server->port.refusesClients = opens++ == 0; };
  server->pump();
  ASSERT_TRUE(returned(1));
}

TEST_F(ReturnAfterALateWelcome, IsTriedAgainIfItCannotBeAwaited) {
  client.system.failNext("epollCtl", -ENOMEM);
  waitInVain();
  EXPECT_TRUE(client.system.hasFailed());
  server->pump();
  ASSERT_TRUE(returned(1));
}

class ReturnAfterAFailedCall : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Calls, ReturnAfterAFailedCall,
                         testing::Values("createTimer", "createWatch", "addWatch", "setTimer",
                                         "open", "fstat", "makeFifo", "write", "random", "epollCtl",
                                         "read", "poll"));

TEST_P(ReturnAfterAFailedCall, GoesOn) {
  const std::string name = uniquePort();
  for (int skip = 0; skip < 3; ++skip) {
    SCOPED_TRACE(skip);
    std::optional<EchoServer> server(std::in_place);
    ASSERT_EQ(server->start(name), EvtRes_Success);
    server->pump();
    ReturningClient client;
    ASSERT_EQ(client.connect(name), EvtRes_Success);
    server.reset();
    ASSERT_TRUE(client.loop.runUntil([&] { return client.losses == 1; }));
    client.system.failNext(GetParam(), -ENOMEM, skip);
    client.loop.runUntilQuiet(std::chrono::milliseconds(skip * 60));
    server.emplace();
    ASSERT_EQ(server->start(name), EvtRes_Success);
    server->pump();
    ASSERT_TRUE(client.loop.runUntil([&] { return client.returns == 1 || client.losses > 1; }));
    client.system.failNext("", 0, 0, 0);
    ASSERT_TRUE(client.loop.runUntil([&] { return client.isOpen(); }));
    EXPECT_EQ(client.request(), EvtRes_Success);
  }
}

TEST_F(Return, IsFoundByARequestFirstAndTheLossIsReportedOnce) {
  server.reset();
  EXPECT_EQ(client.request(), EvtRes_Closed);
  EXPECT_EQ(client.losses, 1);
  startServer();
  bool renewed = false;
  EXPECT_EQ(client.resume(renewed), EvtRes_Success);
  client.loop.runUntilQuiet();
  EXPECT_EQ(client.losses, 1);
  EXPECT_EQ(client.returns, 0);
}

}  // namespace
}  // namespace EvtSrv::internal
