#include "tests/fault/fault_test.h"

namespace fault {
namespace {

using ModelSrv::ModelRes_NotConnected;
using ModelSrv::ModelRes_Success;

/// A client with a subscription, whose server ends.
class ServerGone : public FaultTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(first_.execute("serve " + port), success());
    ASSERT_EQ(client_.connect(port).result, ModelRes_Success);
    ASSERT_EQ(client_.subscribe(client_.counter), ModelRes_Success);
    ASSERT_EQ(client_.get(client_.counter).text, "0");
  }

  void expectImmediateError() {
    const Reply reply = client_.get(client_.counter);
    EXPECT_EQ(reply.result, ModelRes_NotConnected);
    EXPECT_LT(reply.elapsed, immediateLimit);
  }

  void expectReconnectionByTheNextRequest() {
    Peer second;
    ASSERT_EQ(second.execute("serve " + port), success());
    ASSERT_EQ(second.execute("set 5"), success());
    EXPECT_EQ(client_.get(client_.counter).text, "5");
    const unsigned before = client_.counter.updates();
    ASSERT_EQ(second.execute("set 6"), success());
    EXPECT_TRUE(client_.pumpUntil([&] { return client_.counter.updates() > before; }));
    EXPECT_EQ(client_.get(client_.counter).text, "6");
  }

  Peer first_;
  Client client_;
};

TEST_F(ServerGone, AfterAnExitTheNextRequestFailsImmediately) {
  first_.quit();
  expectImmediateError();
  expectImmediateError();
}

TEST_F(ServerGone, AfterAKillTheNextRequestFailsImmediately) {
  first_.kill();
  expectImmediateError();
  expectImmediateError();
}

TEST_F(ServerGone, AfterAnExitAndARestartTheNextRequestConnectsAndRenewsTheSubscriptions) {
  first_.quit();
  expectImmediateError();
  expectReconnectionByTheNextRequest();
}

TEST_F(ServerGone, AfterAKillAndARestartTheNextRequestConnectsAndRenewsTheSubscriptions) {
  first_.kill();
  expectImmediateError();
  expectReconnectionByTheNextRequest();
}

TEST_F(ServerGone, ReplacedBetweenTwoRequestsLetsBothSucceed) {
  first_.kill();
  expectReconnectionByTheNextRequest();
}

TEST_F(ServerGone, KilledDuringARequestFailsItImmediately) {
  Peer other;
  ASSERT_EQ(other.execute("connect " + port), success());
  first_.suspend();
  other.send("get");
  // The peer waits for its reply by now, or is about to send the request. Either way the
  // request must fail soon.
  first_.kill();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(other.result(), number(ModelRes_NotConnected) + " ");
  EXPECT_LT(std::chrono::steady_clock::now() - start, immediateLimit);
}

TEST_F(ServerGone, KilledLeavesOnlyItsMailboxBehind) {
  EXPECT_EQ(privatePipeCount(first_.pid()), 3U);
  EXPECT_TRUE(namedPrivatePipes(first_.pid()).empty());
  first_.kill();
  EXPECT_EQ(::access(mailbox.c_str(), F_OK), 0);
}

TEST_F(ServerGone, ExitedHasRemovedItsMailbox) {
  first_.quit();
  EXPECT_NE(::access(mailbox.c_str(), F_OK), 0);
}

TEST_F(ServerGone, LeavesAClientDisconnectedIfItsManagerDoesNotReconnect) {
  Client client(false);
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  first_.kill();
  Peer second;
  ASSERT_EQ(second.execute("serve " + port), success());
  EXPECT_EQ(client.get(client.counter).result, ModelRes_NotConnected);
  EXPECT_EQ(client.connect(port).result, ModelRes_Success);
  EXPECT_EQ(client.get(client.counter).text, "0");
}

TEST_F(ServerGone, ManyTimesLeaksNoDescriptorsInTheClient) {
  first_.kill();
  expectImmediateError();
  const std::size_t before = descriptorCount(::getpid());
  for (int round = 0; round < 5; ++round) {
    Peer next;
    ASSERT_EQ(next.execute("serve " + port), success());
    EXPECT_EQ(client_.get(client_.counter).text, "0");
    next.kill();
    expectImmediateError();
  }
  EXPECT_EQ(descriptorCount(::getpid()), before);
}

using DeadServer = FaultTest;

TEST_F(DeadServer, ConnectingToTheMailboxOfADeadServerFailsImmediately) {
  {
    Peer server;
    ASSERT_EQ(server.execute("serve " + port), success());
    server.kill();
  }
  Client client;
  const Reply reply = client.connect(port);
  EXPECT_EQ(reply.result, ModelRes_NotConnected);
  EXPECT_LT(reply.elapsed, immediateLimit);
}

TEST_F(DeadServer, MailboxOfADeadServerIsTakenOver) {
  Peer first;
  ASSERT_EQ(first.execute("serve " + port), success());
  first.kill();
  Peer second;
  ASSERT_EQ(second.execute("serve " + port), success());
  Client client;
  EXPECT_EQ(client.connect(port).result, ModelRes_Success);
}

TEST_F(DeadServer, SecondLiveServerOfANameIsRejected) {
  Peer first;
  ASSERT_EQ(first.execute("serve " + port), success());
  Peer second;
  EXPECT_EQ(second.execute("serve " + port), number(ModelSrv::ModelRes_NameInUse));
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  EXPECT_EQ(client.get(client.counter).text, "0");
  second.quit();
  EXPECT_EQ(::access(mailbox.c_str(), F_OK), 0) << "the rejected server has removed it";
}

}  // namespace
}  // namespace fault
