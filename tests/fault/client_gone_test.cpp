#include "tests/fault/fault_test.h"
#include "tests/fault/raw_pipe.h"

namespace fault {
namespace {

using ModelSrv::ModelRes_Success;

class ClientGone : public FaultTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(server_.ask("serve " + port), success());
    ASSERT_EQ(bystander_.connect(port).result, ModelRes_Success);
    ASSERT_EQ(bystander_.subscribe(bystander_.counter), ModelRes_Success);
    before_ = descriptorCount(server_.pid());
  }

  void TearDown() override {
    EXPECT_TRUE(eventually([this] { return descriptorCount(server_.pid()) == before_; }))
        << descriptorCount(server_.pid()) << " descriptors, before " << before_;
    const unsigned updates = bystander_.counter.updates();
    ASSERT_EQ(server_.ask("set 77"), success());
    EXPECT_TRUE(bystander_.pumpUntil([&] { return bystander_.counter.updates() > updates; }));
    EXPECT_EQ(bystander_.get(bystander_.counter).text, "77");
  }

  void connectAndSubscribe(Peer& client) {
    ASSERT_EQ(client.ask("connect " + port), success());
    ASSERT_EQ(client.ask("subscribe"), success());
    ASSERT_EQ(descriptorCount(server_.pid()), before_ + 3);
  }

  Peer server_;
  Client bystander_;
  std::size_t before_ = 0;
};

TEST_F(ClientGone, ClientExitsAndTheServerClosesItsPipes) {
  Peer client;
  connectAndSubscribe(client);
  client.quit();
}

TEST_F(ClientGone, ClientIsKilledAndTheServerClosesItsPipes) {
  Peer client;
  connectAndSubscribe(client);
  client.kill();
}

TEST_F(ClientGone, ClientIsKilledWhileUpdatesOfItsSubscriptionsArePending) {
  Peer client;
  connectAndSubscribe(client);
  client.suspend();
  ASSERT_EQ(server_.ask("set 5"), success());
  client.kill();
  ASSERT_EQ(server_.ask("set 6"), success());
}

TEST_F(ClientGone, ClientLeavesWhileItsReplyIsHalfWritten) {
  ASSERT_EQ(server_.ask("settext 4000000"), success());
  RawClient client;
  ASSERT_TRUE(client.connect(mailbox));
  ASSERT_TRUE(client.requests.write(wire::frame(
      wire::request, wire::save, 1, wire::chain({textId}) + wire::u16(wire::wholeValue))));
  EXPECT_EQ(client.replies.read(1000).size(), 1000U);
  client.replies.close();
  client.requests.close();
  client.events.close();
}

TEST_F(ClientGone, ClientClosesItsReplyPipeAloneAndIsDropped) {
  RawClient client;
  ASSERT_TRUE(client.connect(mailbox));
  client.replies.close();
  // The server may have noticed before it read this.
  static_cast<void>(client.requests.write(wire::frame(
      wire::request, wire::save, 1, wire::chain({counterId}) + wire::u16(wire::wholeValue))));
  EXPECT_TRUE(client.events.ended());
}

TEST_F(ClientGone, ClientClosesItsEventPipeAloneAndIsDroppedAtTheNextUpdate) {
  RawClient client;
  ASSERT_TRUE(client.connect(mailbox));
  ASSERT_TRUE(client.ask(wire::subscribe, wire::chain({counterId}) + wire::u16(wire::wholeValue)));
  client.events.close();
  ASSERT_EQ(server_.ask("set 8"), success());
  EXPECT_TRUE(client.replies.ended());
}

/// Connects, subscribes to every part of the "many" node, leaves.
void subscribeALotAndLeave(const std::string& mailbox) {
  RawClient client;
  ASSERT_TRUE(client.connect(mailbox));
  for (std::uint16_t id = 0; id < manyParts; ++id) {
    const auto answer =
        client.ask(wire::subscribe, wire::chain({manyId, id}) + wire::u16(wire::wholeValue));
    ASSERT_TRUE(answer);
    ASSERT_EQ(answer->code, ModelRes_Success);
  }
}

TEST_F(ClientGone, SubscriptionsOfClientsThatWentAreFreed) {
  constexpr int warmUp = 5;
  constexpr int rounds = 40;
  for (int round = 0; round < warmUp; ++round) {
    subscribeALotAndLeave(mailbox);
  }
  ASSERT_TRUE(eventually([this] { return descriptorCount(server_.pid()) == before_; }));
  const std::size_t memory = residentKiB(server_.pid());
  for (int round = 0; round < rounds; ++round) {
    subscribeALotAndLeave(mailbox);
  }
  ASSERT_TRUE(eventually([this] { return descriptorCount(server_.pid()) == before_; }));
  // Had they stayed, these would be 40,000 subscriptions.
  if (memoryIsReused()) {
    EXPECT_LT(residentKiB(server_.pid()), memory + 1024);
  }
  // Changes that nobody subscribed cost nobody anything and reach nobody.
  ASSERT_EQ(server_.ask("change 5000"), "ok");
}

}  // namespace
}  // namespace fault
