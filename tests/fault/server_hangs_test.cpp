#include "tests/fault/fault_test.h"

namespace fault {
namespace {

using ModelSrv::ModelRes_Success;
using ModelSrv::ModelRes_Timeout;
using std::chrono::milliseconds;

constexpr milliseconds replyTimeout{2000};
/// A busy machine may take longer.
constexpr milliseconds maxTimeout{6000};

void expectTimeout(const Reply& reply) {
  EXPECT_EQ(reply.result, ModelRes_Timeout);
  EXPECT_GE(reply.elapsed, replyTimeout - milliseconds(50));
  EXPECT_LT(reply.elapsed, maxTimeout);
}

void expectImmediateError(const Reply& reply) {
  EXPECT_EQ(reply.result, ModelRes_Timeout);
  EXPECT_LT(reply.elapsed, milliseconds(500));
}

using ServerHangs = FaultTest;

TEST_F(ServerHangs, RequestToAHungServerTimesOutAndLaterOnesFailImmediatelyUntilItIsActive) {
  Peer server;
  ASSERT_EQ(server.execute("serve " + port), success());
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  ASSERT_EQ(client.store(client.text, "before").result, ModelRes_Success);
  ASSERT_EQ(client.subscribe(client.counter), ModelRes_Success);
  server.suspend();

  expectTimeout(client.get(client.text));
  for (int i = 0; i < 100; ++i) {
    expectImmediateError(client.get(client.counter));
  }

  server.resume();
  ASSERT_EQ(server.execute("set 9"), success());
  // The late reply is "before"; it must not be taken for the reply to the next request.
  ASSERT_TRUE(eventually([&] { return client.get(client.counter).result == ModelRes_Success; }));
  EXPECT_EQ(client.get(client.counter).text, "9");
  EXPECT_EQ(client.get(client.text).text, "before");
  EXPECT_EQ(client.get(client.counter).text, "9");
}

TEST_F(ServerHangs, HungServerIsActiveAgainWithAnEvent) {
  Peer server;
  ASSERT_EQ(server.execute("serve " + port), success());
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  ASSERT_EQ(client.subscribe(client.counter), ModelRes_Success);
  server.suspend();
  expectTimeout(client.get(client.text));
  server.resume();
  ASSERT_EQ(server.execute("set 1"), success());
  ASSERT_TRUE(client.pumpUntil([&] { return client.counter.updates() > 0; }));
  EXPECT_EQ(client.get(client.counter).text, "1");
}

TEST_F(ServerHangs, ConnectingToAHungServerTimesOut) {
  Peer server;
  ASSERT_EQ(server.execute("serve " + port), success());
  server.suspend();
  const std::size_t before = descriptorCount(::getpid());
  {
    Client client;
    expectTimeout(client.connect(port));
    const auto reply = client.get(client.counter);
    EXPECT_EQ(reply.result, ModelSrv::ModelRes_NotConnected);
    EXPECT_LT(reply.elapsed, immediateLimit);
    EXPECT_TRUE(namedPrivatePipes(::getpid()).empty());
    server.resume();
    EXPECT_EQ(client.connect(port).result, ModelRes_Success);
    EXPECT_EQ(client.get(client.counter).text, "0");
  }
  EXPECT_EQ(descriptorCount(::getpid()), before);
}

TEST_F(ServerHangs, ReconnectingToAHungServerFailsUntilItIsActive) {
  Client client;
  {
    Peer first;
    ASSERT_EQ(first.execute("serve " + port), success());
    ASSERT_EQ(client.connect(port).result, ModelRes_Success);
    ASSERT_EQ(client.subscribe(client.counter), ModelRes_Success);
    first.kill();
  }
  Peer second;
  ASSERT_EQ(second.execute("serve " + port), success());
  second.suspend();
  expectTimeout(client.get(client.counter));
  for (int i = 0; i < 100; ++i) {
    expectImmediateError(client.get(client.counter));
  }
  second.resume();
  ASSERT_TRUE(eventually([&] { return client.get(client.counter).result == ModelRes_Success; }));
  const unsigned before = client.counter.updates();
  ASSERT_EQ(second.execute("set 3"), success());
  EXPECT_TRUE(client.pumpUntil([&] { return client.counter.updates() > before; }));
  EXPECT_EQ(client.get(client.counter).text, "3");
}

TEST_F(ServerHangs, RequestAfterAHungServerWasKilledReturnsNotConnected) {
  Peer server;
  ASSERT_EQ(server.execute("serve " + port), success());
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  server.suspend();
  expectTimeout(client.get(client.counter));
  server.kill();
  const Reply reply = client.get(client.counter);
  EXPECT_EQ(reply.result, ModelSrv::ModelRes_NotConnected);
  EXPECT_LT(reply.elapsed, immediateLimit);
}

}  // namespace
}  // namespace fault
