#include <gmock/gmock.h>

#include <chrono>

#include "tests/platform/evtsrv/evtsrv_fixture.h"
#include "tests/platform/evtsrv/poll_loop.h"
#include "tests/support/own_mounts.h"

// A client's connection after a loss: the dispatches of its manager make it again.

namespace EvtSrv::internal {
namespace {

using namespace std::chrono_literals;

/// A client that records its connection's life, and is driven by nothing but its poll
/// descriptor.
class ReturningClient : public EchoClient {
 public:
  using EchoClient::EchoClient;

  void connectionLost() override { ++losses; }
  void connectionMade() override { ++returns; }
  void replyReceived(std::uint16_t replyCode) override { replies.push_back(replyCode); }

  evtsrv_tests::PollLoop loop{core.pollDescriptor(),
                              [this] { static_cast<void>(core.receive(0)); }};
  int losses = 0;
  int returns = 0;
  std::vector<std::uint16_t> replies;
};

class Return : public testing::Test {
 protected:
  /// The client watches /tmp while its server is away: files that others make there wake it.
  static void SetUpTestSuite() {
    static const bool mounted = test_support::haveOwnMounts() && test_support::mountOwnTmp();
    othersDisturb = !mounted;
  }
  static inline bool othersDisturb = false;
  /// Whether so many wake-ups are those of a client that waits; without a /tmp of its own
  /// their number tells nothing.
  static bool isFew(int wakeUps) { return wakeUps < 20 || othersDisturb; }

  void SetUp() override {
    startServer();
    ASSERT_EQ(client.connect(name), EvtRes_Success);
  }
  void TearDown() override { ::unlink(mailboxPath(name).c_str()); }

  void startServer() {
    server.emplace();
    ASSERT_EQ(server->start(name), EvtRes_Success);
    server->pump();
  }
  /// As a server that is killed: the mailbox stays, and no process reads it.
  void killServer() {
    server.reset();
    ASSERT_EQ(::mkfifo(mailboxPath(name).c_str(), 0600), 0);
  }
  bool returned(int times) {
    return client.loop.runUntil([&] { return client.returns == times; });
  }

  std::string name = uniquePort();
  std::optional<EchoServer> server;
  ReturningClient client;
};

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

class Posted : public Return {
 protected:
  EvtRes post(std::uint16_t operation, std::size_t size = 20) {
    const std::lock_guard lock(client.mutex);
    const std::vector<std::uint8_t> payload(size);
    return client.client->post(operation, payload);
  }
  EvtRes flush() {
    const std::lock_guard lock(client.mutex);
    return client.client->flushPosted();
  }
  EvtRes await() {
    const std::lock_guard lock(client.mutex);
    return client.client->awaitPosted();
  }
  static std::vector<std::uint16_t> numbers(std::uint16_t end) {
    std::vector<std::uint16_t> all;
    for (std::uint16_t i = 1; i < end; ++i) {
      all.push_back(i);
    }
    return all;
  }
};

TEST_F(Posted, RequestsGetTheirRepliesFromDispatchesInOrder) {
  for (std::uint16_t i = 1; i < 60; ++i) {
    ASSERT_EQ(post(i), EvtRes_Success);
  }
  ASSERT_EQ(flush(), EvtRes_Success);
  ASSERT_TRUE(client.loop.runUntil([&] { return client.replies.size() == 59; }));
  EXPECT_EQ(client.replies, numbers(60));
  EXPECT_EQ(client.loop.runUntilQuiet(), 0);
}

TEST_F(Posted, RequestsGoBeforeALaterExchange) {
  ASSERT_EQ(post(1), EvtRes_Success);
  ASSERT_EQ(post(2), EvtRes_Success);
  EXPECT_EQ(client.request(), EvtRes_Success);
  EXPECT_EQ(client.replies, numbers(3));
  client.loop.runUntilQuiet();
  EXPECT_EQ(client.replies, numbers(3));
}

TEST_F(Posted, RequestsCanBeAwaited) {
  ASSERT_EQ(post(1), EvtRes_Success);
  EXPECT_EQ(await(), EvtRes_Success);
  EXPECT_EQ(client.replies, numbers(2));
  EXPECT_EQ(await(), EvtRes_Success) << "nothing is posted";
}

TEST_F(Posted, RequestsThatDoNotFitAreSentWhenTheServerReads) {
  server->stopPumping();
  for (std::uint16_t i = 1; i < 100; ++i) {
    ASSERT_EQ(post(i, 4000), EvtRes_Success);
  }
  ASSERT_EQ(flush(), EvtRes_Success);
  client.loop.runUntilQuiet();
  EXPECT_EQ(client.loop.runFor(100ms), 0) << "waits for the pipe without turning";
  server->pump();
  ASSERT_TRUE(client.loop.runUntil([&] { return client.replies.size() == 99; }));
  EXPECT_EQ(client.replies, numbers(100));
}

TEST_F(Posted, RequestsWithoutARepliesTimeOutAndTheirLateRepliesCount) {
  server->stopPumping();
  ASSERT_EQ(post(1), EvtRes_Success);
  client.system.freezeTime();
  EXPECT_EQ(await(), EvtRes_Timeout);
  EXPECT_EQ(await(), EvtRes_Stalled);
  server->serveAll();
  EXPECT_EQ(client.request(), EvtRes_Timeout) << "its own reply";
  EXPECT_EQ(client.replies, numbers(2));
}

TEST_F(Posted, RequestsEndWithTheConnection) {
  server->stopPumping();
  ASSERT_EQ(post(1), EvtRes_Success);
  ASSERT_EQ(flush(), EvtRes_Success);
  server.reset();
  ASSERT_TRUE(client.loop.runUntil([&] { return client.losses == 1; }));
  EXPECT_EQ(post(2), EvtRes_Closed);
  EXPECT_EQ(client.replies, std::vector<std::uint16_t>());
}

}  // namespace
}  // namespace EvtSrv::internal
