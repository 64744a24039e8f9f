#include "tests/fault/fault_test.h"
#include "tests/fault/raw_pipe.h"

// SIGPIPE has its default disposition in the peers, so the signal would end them.

namespace fault {
namespace {

using ModelSrv::ModelRes_NotConnected;
using ModelSrv::ModelRes_Success;

std::string getText() {
  return wire::frame(wire::request, wire::save, 1,
                     wire::chain({textId}) + wire::u16(wire::wholeValue));
}

using ProcessState = FaultTest;

TEST_F(ProcessState, ClientWhoseServerIsKilledGetsNoSigpipeAndKeepsItsSignalState) {
  Peer server;
  ASSERT_EQ(server.execute("serve " + port), success());
  Peer client;
  ASSERT_EQ(client.execute("connect " + port), success());
  ASSERT_EQ(client.execute("subscribe"), success());
  server.kill();
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(client.execute("get"), number(ModelRes_NotConnected) + " ");
    EXPECT_EQ(client.execute("connect " + port), number(ModelRes_NotConnected));
  }
  EXPECT_TRUE(eventually([&] { return sigpipeState(client.pid()).empty(); }))
      << sigpipeState(client.pid());
  client.quit();
}

TEST_F(ProcessState, ServerWhoseClientsDisconnectDuringWritesGetsNoSigpipeAndKeepsItsSignalState) {
  Peer server;
  ASSERT_EQ(server.execute("serve " + port), success());
  ASSERT_EQ(server.execute("settext 1000000"), success());
  for (int round = 0; round < 5; ++round) {
    RawClient noReplies;
    ASSERT_TRUE(noReplies.connect(mailbox));
    noReplies.replies.close();
    // The server may close the connection before it reads this.
    static_cast<void>(noReplies.requests.write(getText()));
    EXPECT_TRUE(noReplies.events.ended());

    RawClient noEvents;
    ASSERT_TRUE(noEvents.connect(mailbox));
    ASSERT_TRUE(
        noEvents.exchange(wire::subscribe, wire::chain({counterId}) + wire::u16(wire::wholeValue)));
    noEvents.events.close();
    ASSERT_EQ(server.execute("set " + std::to_string(round + 1)), success());
    EXPECT_TRUE(noEvents.replies.ended());

    RawClient halfReply;
    ASSERT_TRUE(halfReply.connect(mailbox));
    ASSERT_TRUE(halfReply.requests.write(getText()));
    EXPECT_EQ(halfReply.replies.read(100).size(), 100U);
  }
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  EXPECT_EQ(client.get(client.counter).text, "5");
  EXPECT_TRUE(eventually([&] { return sigpipeState(server.pid()).empty(); }))
      << sigpipeState(server.pid());
  server.quit();
}

TEST_F(ProcessState, ClientThatExitsBeforeItsWelcomeLeavesNothingInTheServer) {
  Peer server;
  ASSERT_EQ(server.execute("serve " + port), success());
  const std::size_t before = descriptorCount(server.pid());
  for (int round = 0; round < 10; ++round) {
    RawClient client;
    ASSERT_TRUE(client.sendHello(mailbox));
  }
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  EXPECT_TRUE(eventually([&] { return descriptorCount(server.pid()) == before + 3; }));
  EXPECT_TRUE(eventually([&] { return sigpipeState(server.pid()).empty(); }))
      << sigpipeState(server.pid());
}

}  // namespace
}  // namespace fault
