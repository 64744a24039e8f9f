#include "tests/fault/fault_test.h"

namespace fault {
namespace {

using ModelSrv::ModelRes_NotConnected;
using ModelSrv::ModelRes_Success;

/// A client with a subscription whose server has just gone.
class ServerGone : public FaultTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(first_.ask("serve " + port), success());
    ASSERT_EQ(client_.connect(port).result, ModelRes_Success);
    ASSERT_EQ(client_.subscribe(client_.counter), ModelRes_Success);
    ASSERT_EQ(client_.get(client_.counter).text, "0");
  }

  void expectFailureAtOnce() {
    const Answer answer = client_.get(client_.counter);
    EXPECT_EQ(answer.result, ModelRes_NotConnected);
    EXPECT_LT(answer.elapsed, atOnce);
  }

  void expectRenewalByTheNextRequest() {
    Peer second;
    ASSERT_EQ(second.ask("serve " + port), success());
    ASSERT_EQ(second.ask("set 5"), success());
    EXPECT_EQ(client_.get(client_.counter).text, "5");
    const unsigned before = client_.counter.updates();
    ASSERT_EQ(second.ask("set 6"), success());
    EXPECT_TRUE(client_.pumpUntil([&] { return client_.counter.updates() > before; }));
    EXPECT_EQ(client_.get(client_.counter).text, "6");
  }

  Peer first_;
  Client client_;
};

TEST_F(ServerGone, ServerExitsNextRequestFailsAtOnce) {
  first_.quit();
  expectFailureAtOnce();
  expectFailureAtOnce();
}

TEST_F(ServerGone, ServerIsKilledNextRequestFailsAtOnce) {
  first_.kill();
  expectFailureAtOnce();
  expectFailureAtOnce();
}

TEST_F(ServerGone, ServerExitsAndIsBackNextRequestConnectsAndRenewsSubscriptions) {
  first_.quit();
  expectFailureAtOnce();
  expectRenewalByTheNextRequest();
}

TEST_F(ServerGone, ServerIsKilledAndIsBackNextRequestConnectsAndRenewsSubscriptions) {
  first_.kill();
  expectFailureAtOnce();
  expectRenewalByTheNextRequest();
}

TEST_F(ServerGone, ServerIsReplacedBetweenTwoRequestsWhichBothSucceed) {
  first_.kill();
  expectRenewalByTheNextRequest();
}

TEST_F(ServerGone, ServerIsKilledInTheMiddleOfARequestWhichFailsAtOnce) {
  Peer other;
  ASSERT_EQ(other.ask("connect " + port), success());
  first_.suspend();
  other.send("get");
  // The peer waits for its reply now, or is about to ask: both must end soon.
  first_.kill();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(other.answer(), number(ModelRes_NotConnected) + " ");
  EXPECT_LT(std::chrono::steady_clock::now() - start, atOnce);
}

TEST_F(ServerGone, ServerIsKilledAndLeavesItsMailboxAlone) {
  EXPECT_EQ(privatePipeCount(first_.pid()), 3U);
  EXPECT_TRUE(namedPrivatePipes(first_.pid()).empty());
  first_.kill();
  EXPECT_EQ(::access(mailbox.c_str(), F_OK), 0);
}

TEST_F(ServerGone, ServerExitsAndItsMailboxIsGone) {
  first_.quit();
  EXPECT_NE(::access(mailbox.c_str(), F_OK), 0);
}

TEST_F(ServerGone, ManagerThatDoesNotReconnectStaysDisconnected) {
  Client client(false);
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  first_.kill();
  Peer second;
  ASSERT_EQ(second.ask("serve " + port), success());
  EXPECT_EQ(client.get(client.counter).result, ModelRes_NotConnected);
  EXPECT_EQ(client.connect(port).result, ModelRes_Success);
  EXPECT_EQ(client.get(client.counter).text, "0");
}

TEST_F(ServerGone, ClientsDescriptorsAreBackAfterManyServers) {
  first_.kill();
  expectFailureAtOnce();
  const std::size_t before = descriptorCount(::getpid());
  for (int round = 0; round < 5; ++round) {
    Peer next;
    ASSERT_EQ(next.ask("serve " + port), success());
    EXPECT_EQ(client_.get(client_.counter).text, "0");
    next.kill();
    expectFailureAtOnce();
  }
  EXPECT_EQ(descriptorCount(::getpid()), before);
}

TEST_F(FaultTest, MailboxOfADeadServerIsADeadEndAtOnce) {
  {
    Peer server;
    ASSERT_EQ(server.ask("serve " + port), success());
    server.kill();
  }
  Client client;
  const Answer answer = client.connect(port);
  EXPECT_EQ(answer.result, ModelRes_NotConnected);
  EXPECT_LT(answer.elapsed, atOnce);
}

TEST_F(FaultTest, MailboxOfADeadServerIsTakenOver) {
  Peer first;
  ASSERT_EQ(first.ask("serve " + port), success());
  first.kill();
  Peer second;
  ASSERT_EQ(second.ask("serve " + port), success());
  Client client;
  EXPECT_EQ(client.connect(port).result, ModelRes_Success);
}

TEST_F(FaultTest, SecondLiveServerOfTheNameIsRefused) {
  Peer first;
  ASSERT_EQ(first.ask("serve " + port), success());
  Peer second;
  EXPECT_EQ(second.ask("serve " + port), number(ModelSrv::ModelRes_NameInUse));
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  EXPECT_EQ(client.get(client.counter).text, "0");
  second.quit();
  EXPECT_EQ(::access(mailbox.c_str(), F_OK), 0) << "the one that was refused removed it";
}

}  // namespace
}  // namespace fault
