#include "tests/fault/other_client_test.h"
#include "tests/fault/raw_pipe.h"

namespace fault {
namespace {

using ModelSrv::ModelRes_Success;

class ClientThat : public OtherClientTest {
 protected:
  void TearDown() override { expectOtherUnaffected(); }

  void connectAndSubscribe(Peer& client) {
    ASSERT_EQ(client.execute("connect " + port), success());
    ASSERT_EQ(client.execute("subscribe"), success());
    ASSERT_EQ(descriptorCount(server_.pid()), before_ + 3);
  }
};

TEST_F(ClientThat, ExitsAndTheServerClosesItsPipes) {
  Peer client;
  connectAndSubscribe(client);
  client.quit();
}

TEST_F(ClientThat, IsKilledAndTheServerClosesItsPipes) {
  Peer client;
  connectAndSubscribe(client);
  client.kill();
}

TEST_F(ClientThat, IsKilledWhileUpdatesOfItsSubscriptionsArePending) {
  Peer client;
  connectAndSubscribe(client);
  client.suspend();
  ASSERT_EQ(server_.execute("set 5"), success());
  client.kill();
  ASSERT_EQ(server_.execute("set 6"), success());
}

TEST_F(ClientThat, DisconnectsWhileItsReplyIsHalfWritten) {
  ASSERT_EQ(server_.execute("settext 4000000"), success());
  RawClient client;
  ASSERT_TRUE(client.connect(mailbox));
  ASSERT_TRUE(client.requests.write(wire::frame(
      wire::request, wire::save, 1, wire::chain({textId}) + wire::u16(wire::wholeValue))));
  EXPECT_EQ(client.replies.read(1000).size(), 1000U);
  client.replies.close();
  client.requests.close();
  client.events.close();
}

TEST_F(ClientThat, ClosesOnlyItsReplyPipeAndIsDisconnected) {
  RawClient client;
  ASSERT_TRUE(client.connect(mailbox));
  client.replies.close();
  // The server may close the connection before it reads this.
  static_cast<void>(client.requests.write(wire::frame(
      wire::request, wire::save, 1, wire::chain({counterId}) + wire::u16(wire::wholeValue))));
  EXPECT_TRUE(client.events.ended());
}

TEST_F(ClientThat, ClosesOnlyItsEventPipeAndIsDisconnectedAtTheNextUpdate) {
  RawClient client;
  ASSERT_TRUE(client.connect(mailbox));
  ASSERT_TRUE(
      client.exchange(wire::subscribe, wire::chain({counterId}) + wire::u16(wire::wholeValue)));
  client.events.close();
  ASSERT_EQ(server_.execute("set 8"), success());
  EXPECT_TRUE(client.replies.ended());
}

/// Connects, subscribes to every part of the node "many", and disconnects.
void subscribeToManyAndDisconnect(const std::string& mailbox) {
  RawClient client;
  ASSERT_TRUE(client.connect(mailbox));
  for (std::uint16_t id = 0; id < manyParts; ++id) {
    const auto reply =
        client.exchange(wire::subscribe, wire::chain({manyId, id}) + wire::u16(wire::wholeValue));
    ASSERT_TRUE(reply);
    ASSERT_EQ(reply->code, ModelRes_Success);
  }
}

TEST_F(ClientThat, LeavesNoSubscriptionBehind) {
  constexpr int warmUp = 5;
  constexpr int rounds = 40;
  for (int round = 0; round < warmUp; ++round) {
    subscribeToManyAndDisconnect(mailbox);
  }
  ASSERT_TRUE(eventually([this] { return descriptorCount(server_.pid()) == before_; }));
  const std::size_t memory = residentKiB(server_.pid());
  for (int round = 0; round < rounds; ++round) {
    subscribeToManyAndDisconnect(mailbox);
  }
  ASSERT_TRUE(eventually([this] { return descriptorCount(server_.pid()) == before_; }));
  // Otherwise there would be 40,000 subscriptions.
  if (!test_support::sanitized) {
    EXPECT_LT(residentKiB(server_.pid()), memory + 1024);
  }
  // A change without a subscriber is sent to no client.
  ASSERT_EQ(server_.execute("change 5000"), "ok");
}

}  // namespace
}  // namespace fault
