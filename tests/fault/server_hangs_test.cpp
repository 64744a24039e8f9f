#include "tests/fault/fault_test.h"

namespace fault {
namespace {

using ModelSrv::ModelRes_Success;
using ModelSrv::ModelRes_Timeout;
using std::chrono::milliseconds;

constexpr milliseconds timeout{2000};
/// Busy machines wake late.
constexpr milliseconds timeoutAtMost{6000};

void expectTimeout(const Answer& answer) {
  EXPECT_EQ(answer.result, ModelRes_Timeout);
  EXPECT_GE(answer.elapsed, timeout - milliseconds(50));
  EXPECT_LT(answer.elapsed, timeoutAtMost);
}

void expectFailureAtOnce(const Answer& answer) {
  EXPECT_EQ(answer.result, ModelRes_Timeout);
  EXPECT_LT(answer.elapsed, milliseconds(500));
}

TEST_F(FaultTest, ServerHangsFirstRequestTimesOutFurtherOnesFailAtOnceUntilLife) {
  Peer server;
  ASSERT_EQ(server.ask("serve " + port), success());
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  ASSERT_EQ(client.store(client.text, "before").result, ModelRes_Success);
  ASSERT_EQ(client.subscribe(client.counter), ModelRes_Success);
  server.suspend();

  expectTimeout(client.get(client.text));
  for (int i = 0; i < 100; ++i) {
    expectFailureAtOnce(client.get(client.counter));
  }

  server.resume();
  ASSERT_EQ(server.ask("set 9"), success());
  // The late reply says "before"; whoever took it for the next one's would show it.
  ASSERT_TRUE(eventually([&] { return client.get(client.counter).result == ModelRes_Success; }));
  EXPECT_EQ(client.get(client.counter).text, "9");
  EXPECT_EQ(client.get(client.text).text, "before");
  EXPECT_EQ(client.get(client.counter).text, "9");
}

TEST_F(FaultTest, ServerHangsAndAnEventShowsItsLife) {
  Peer server;
  ASSERT_EQ(server.ask("serve " + port), success());
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  ASSERT_EQ(client.subscribe(client.counter), ModelRes_Success);
  server.suspend();
  expectTimeout(client.get(client.text));
  server.resume();
  ASSERT_EQ(server.ask("set 1"), success());
  ASSERT_TRUE(client.pumpUntil([&] { return client.counter.updates() > 0; }));
  EXPECT_EQ(client.get(client.counter).text, "1");
}

TEST_F(FaultTest, ServerHangsAtConnectingWhichTimesOut) {
  Peer server;
  ASSERT_EQ(server.ask("serve " + port), success());
  server.suspend();
  const std::size_t before = descriptorCount(::getpid());
  {
    Client client;
    expectTimeout(client.connect(port));
    const auto answer = client.get(client.counter);
    EXPECT_EQ(answer.result, ModelSrv::ModelRes_NotConnected);
    EXPECT_LT(answer.elapsed, atOnce);
    EXPECT_TRUE(namedPrivatePipes(::getpid()).empty());
    server.resume();
    EXPECT_EQ(client.connect(port).result, ModelRes_Success);
    EXPECT_EQ(client.get(client.counter).text, "0");
  }
  EXPECT_EQ(descriptorCount(::getpid()), before);
}

TEST_F(FaultTest, ServerThatIsBackHangsAtReconnectingUntilLife) {
  Client client;
  {
    Peer first;
    ASSERT_EQ(first.ask("serve " + port), success());
    ASSERT_EQ(client.connect(port).result, ModelRes_Success);
    ASSERT_EQ(client.subscribe(client.counter), ModelRes_Success);
    first.kill();
  }
  Peer second;
  ASSERT_EQ(second.ask("serve " + port), success());
  second.suspend();
  expectTimeout(client.get(client.counter));
  for (int i = 0; i < 100; ++i) {
    expectFailureAtOnce(client.get(client.counter));
  }
  second.resume();
  ASSERT_TRUE(eventually([&] { return client.get(client.counter).result == ModelRes_Success; }));
  const unsigned before = client.counter.updates();
  ASSERT_EQ(second.ask("set 3"), success());
  EXPECT_TRUE(client.pumpUntil([&] { return client.counter.updates() > before; }));
  EXPECT_EQ(client.get(client.counter).text, "3");
}

TEST_F(FaultTest, ServerHangsAndIsKilledNextRequestSaysSo) {
  Peer server;
  ASSERT_EQ(server.ask("serve " + port), success());
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  server.suspend();
  expectTimeout(client.get(client.counter));
  server.kill();
  const Answer answer = client.get(client.counter);
  EXPECT_EQ(answer.result, ModelSrv::ModelRes_NotConnected);
  EXPECT_LT(answer.elapsed, atOnce);
}

}  // namespace
}  // namespace fault
