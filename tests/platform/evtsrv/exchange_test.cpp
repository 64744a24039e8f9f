#include "tests/platform/evtsrv/evtsrv_fixture.h"

namespace EvtSrv::internal {
namespace {

class Exchange : public testing::Test {
 protected:
  void connect() {
    ASSERT_EQ(server.start(name), EvtRes_Success);
    server.pump();
    ASSERT_EQ(client.connect(name), EvtRes_Success);
  }

  std::string name = uniquePort();
  EchoServer server;
  EchoClient client;
};

TEST_F(Exchange, ReturnsTheReplyToItsRequest) {
  connect();
  std::string text = "some text";
  EXPECT_EQ(client.request(text, 42), EvtRes_Success);
  EXPECT_EQ(text, "some text");
  EXPECT_EQ(client.code, 42);
}

TEST_F(Exchange, CarriesPayloadsOfEverySize) {
  connect();
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{1}, std::size_t{4080}, std::size_t{4081}, std::size_t{65519},
        std::size_t{65520}, std::size_t{65521}, std::size_t{1} << 20, std::size_t{maxPayload}}) {
    std::string text(size, 'x');
    const std::string sent = text;
    ASSERT_EQ(client.request(text), EvtRes_Success) << size;
    EXPECT_TRUE(text == sent) << size;
  }
}

TEST_F(Exchange, WritesASmallRequestFromOneBuffer) {
  connect();
  for (const std::size_t size : {0U, 1U, 112U}) {
    std::string text(size, 'x');
    ASSERT_EQ(client.request(text), EvtRes_Success);
    EXPECT_EQ(text, std::string(size, 'x'));
  }
  EXPECT_EQ(client.system.writesOfTwoBuffers, 0);
  std::string text(113, 'y');
  ASSERT_EQ(client.request(text), EvtRes_Success);
  EXPECT_EQ(text, std::string(113, 'y'));
  EXPECT_EQ(client.system.writesOfTwoBuffers, 1) << "larger requests are not copied";
}

TEST_F(Exchange, ReadsTheClockOnce) {
  connect();
  const int before = client.system.clockReads;
  EXPECT_EQ(client.request(), EvtRes_Success);
  EXPECT_EQ(client.system.clockReads, before + 1);
}

TEST_F(Exchange, RejectsAPayloadAboveTheLimitAndSendsNothing) {
  connect();
  std::string text(std::size_t{maxPayload} + 1, 'x');
  EXPECT_EQ(client.request(text), EvtRes_TooLarge);
  EXPECT_EQ(client.request(), EvtRes_Success);
  EXPECT_EQ(server.port.handled, 1);
}

TEST_F(Exchange, ContinuesAfterAPartialWrite) {
  client.system.writeLimit = 36;
  server.system.writeLimit = 36;
  connect();
  std::string text(1000, 'y');
  EXPECT_EQ(client.request(text), EvtRes_Success);
  EXPECT_EQ(text, std::string(1000, 'y'));
}

TEST_F(Exchange, BeginsWithTheStartedEvent) {
  connect();
  EXPECT_EQ(client.core.receive(100), EvtRes_Success);
  ASSERT_EQ(client.events.size(), 1U);
  EXPECT_EQ(client.events[0].first, 1);
}

TEST_F(Exchange, FailsImmediatelyAfterTheServerHasEnded) {
  connect();
  server.stopPumping();
  server.destroy();
  client.system.freezeTime();
  EXPECT_EQ(client.request(), EvtRes_Closed);
  EXPECT_EQ(client.request(), EvtRes_Closed);
  bool renewed = true;
  EXPECT_EQ(client.resume(renewed), EvtRes_NoServer);
  EXPECT_FALSE(renewed);
}

TEST_F(Exchange, ConnectsAgainWhenTheServerIsBack) {
  connect();
  server.stopPumping();
  server.recreate();
  EXPECT_EQ(client.request(), EvtRes_Closed);
  ASSERT_EQ(server.start(name), EvtRes_Success);
  server.pump();
  bool renewed = false;
  EXPECT_EQ(client.resume(renewed), EvtRes_Success);
  EXPECT_TRUE(renewed);
  EXPECT_EQ(client.request(), EvtRes_Success);
  EXPECT_EQ(client.resume(renewed), EvtRes_Success);
  EXPECT_FALSE(renewed);
}

TEST_F(Exchange, LeavesALostConnectionLostIfTheManagerDoesNotReconnect) {
  EchoClient notReconnecting(false);
  connect();
  ASSERT_EQ(notReconnecting.connect(name), EvtRes_Success);
  server.stopPumping();
  server.recreate();
  ASSERT_EQ(server.start(name), EvtRes_Success);
  server.pump();
  bool renewed = true;
  EXPECT_EQ(notReconnecting.resume(renewed), EvtRes_Closed);
  EXPECT_FALSE(renewed);
}

TEST_F(Exchange, LeavesNoDescriptorOpen) {
  const std::size_t before = openDescriptors();
  {
    EchoServer other;
    EchoClient one;
    const std::string port = uniquePort();
    ASSERT_EQ(other.start(port), EvtRes_Success);
    other.pump();
    ASSERT_EQ(one.connect(port), EvtRes_Success);
    EXPECT_EQ(one.request(), EvtRes_Success);
    EXPECT_TRUE(std::filesystem::exists(mailboxPath(port)));
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Exchange, EndsItsSessionWhenTheClientDisconnects) {
  connect();
  EXPECT_EQ(server.port.sessions, 1);
  client.destroy();
  server.stopPumping();
  server.serveAll();
  EXPECT_EQ(server.port.sessions, 0);
  EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(Exchange, MayBeMadeInAnEventHandler) {
  connect();
  EvtRes result = EvtRes_Closed;
  client.onEvent = [&] { result = client.request(); };
  EXPECT_EQ(client.core.receive(100), EvtRes_Success);
  EXPECT_EQ(result, EvtRes_Success);
}

TEST_F(Exchange, WorksAfterAnEventHandlerHasConnectedAgain) {
  connect();
  EvtRes result = EvtRes_Closed;
  client.onEvent = [&] {
    client.onEvent = nullptr;
    client.close();
    result = client.connect(name);
  };
  EXPECT_EQ(client.core.receive(100), EvtRes_Success);
  EXPECT_EQ(result, EvtRes_Success);
  EXPECT_EQ(client.request(), EvtRes_Success);
}

TEST_F(Exchange, FailsIfTheServerIsDestroyedByTheRequest) {
  connect();
  server.port.onRequest = [&] { server.destroy(); };
  EXPECT_EQ(client.request(), EvtRes_Closed);
  server.stopPumping();
  EXPECT_EQ(server.port.sessions, 0);
}

}  // namespace
}  // namespace EvtSrv::internal
