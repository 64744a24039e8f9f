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

TEST_F(Exchange, GivesTheAnswerToItsRequest) {
  connect();
  std::string text = "how are you";
  EXPECT_EQ(client.ask(text, 42), EvtRes_Success);
  EXPECT_EQ(text, "how are you");
  EXPECT_EQ(client.code, 42);
}

TEST_F(Exchange, CarriesPayloadsOfEverySize) {
  connect();
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{1}, std::size_t{4080}, std::size_t{4081}, std::size_t{65519},
        std::size_t{65520}, std::size_t{65521}, std::size_t{1} << 20, std::size_t{maxPayload}}) {
    std::string text(size, 'x');
    const std::string sent = text;
    ASSERT_EQ(client.ask(text), EvtRes_Success) << size;
    EXPECT_TRUE(text == sent) << size;
  }
}

TEST_F(Exchange, WritesASmallRequestInOnePiece) {
  connect();
  for (const std::size_t size : {0U, 1U, 112U}) {
    std::string text(size, 'x');
    ASSERT_EQ(client.ask(text), EvtRes_Success);
    EXPECT_EQ(text, std::string(size, 'x'));
  }
  EXPECT_EQ(client.system.writesOfTwo, 0);
  std::string text(113, 'y');
  ASSERT_EQ(client.ask(text), EvtRes_Success);
  EXPECT_EQ(text, std::string(113, 'y'));
  EXPECT_EQ(client.system.writesOfTwo, 1) << "longer ones are not copied";
}

TEST_F(Exchange, LooksAtTheClockOnce) {
  connect();
  const int before = client.system.looksAtClock;
  EXPECT_EQ(client.ask(), EvtRes_Success);
  EXPECT_EQ(client.system.looksAtClock, before + 1);
}

TEST_F(Exchange, RefusesAPayloadAboveTheLimitAndSendsNothing) {
  connect();
  std::string text(std::size_t{maxPayload} + 1, 'x');
  EXPECT_EQ(client.ask(text), EvtRes_TooLarge);
  EXPECT_EQ(client.ask(), EvtRes_Success);
  EXPECT_EQ(server.port.handled, 1);
}

TEST_F(Exchange, GoesOnWhereAWriteTakesOnlyPart) {
  client.system.writeLimit = 36;
  server.system.writeLimit = 36;
  connect();
  std::string text(1000, 'y');
  EXPECT_EQ(client.ask(text), EvtRes_Success);
  EXPECT_EQ(text, std::string(1000, 'y'));
}

TEST_F(Exchange, TakesTheStartedEventAtOnce) {
  connect();
  EXPECT_EQ(client.core.receive(100), EvtRes_Success);
  ASSERT_EQ(client.events.size(), 1U);
  EXPECT_EQ(client.events[0].first, 1);
}

TEST_F(Exchange, FailsAtOnceAfterTheServerHasGone) {
  connect();
  server.stopPumping();
  server.destroy();
  client.system.freezeTime();
  EXPECT_EQ(client.ask(), EvtRes_Closed);
  EXPECT_EQ(client.ask(), EvtRes_Closed);
  bool renewed = true;
  EXPECT_EQ(client.resume(renewed), EvtRes_NoServer);
  EXPECT_FALSE(renewed);
}

TEST_F(Exchange, ConnectsAgainWhenTheServerIsBack) {
  connect();
  server.stopPumping();
  server.recreate();
  EXPECT_EQ(client.ask(), EvtRes_Closed);
  ASSERT_EQ(server.start(name), EvtRes_Success);
  server.pump();
  bool renewed = false;
  EXPECT_EQ(client.resume(renewed), EvtRes_Success);
  EXPECT_TRUE(renewed);
  EXPECT_EQ(client.ask(), EvtRes_Success);
  EXPECT_EQ(client.resume(renewed), EvtRes_Success);
  EXPECT_FALSE(renewed);
}

TEST_F(Exchange, LeavesALostConnectionLostWhereTheManagerDoesNotReconnect) {
  EchoClient once(false);
  connect();
  ASSERT_EQ(once.connect(name), EvtRes_Success);
  server.stopPumping();
  server.recreate();
  ASSERT_EQ(server.start(name), EvtRes_Success);
  server.pump();
  bool renewed = true;
  EXPECT_EQ(once.resume(renewed), EvtRes_Closed);
  EXPECT_FALSE(renewed);
}

TEST_F(Exchange, LeavesNoNameBehindAndNoDescriptorOpen) {
  const std::size_t before = openDescriptors();
  {
    EchoServer other;
    EchoClient one;
    const std::string port = uniquePort();
    ASSERT_EQ(other.start(port), EvtRes_Success);
    other.pump();
    ASSERT_EQ(one.connect(port), EvtRes_Success);
    EXPECT_EQ(one.ask(), EvtRes_Success);
    EXPECT_TRUE(std::filesystem::exists(mailboxPath(port)));
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Exchange, EndsTheSessionOfAClientThatHasGone) {
  connect();
  EXPECT_EQ(server.port.sessions, 1);
  client.destroy();
  server.stopPumping();
  server.serveAll();
  EXPECT_EQ(server.port.sessions, 0);
  EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(Exchange, MayBeMadeFromAnEventsHandler) {
  connect();
  EvtRes result = EvtRes_Closed;
  client.onEvent = [&] { result = client.ask(); };
  EXPECT_EQ(client.core.receive(100), EvtRes_Success);
  EXPECT_EQ(result, EvtRes_Success);
}

TEST_F(Exchange, MayCloseOrConnectAnewFromAnEventsHandler) {
  connect();
  EvtRes result = EvtRes_Closed;
  client.onEvent = [&] {
    client.onEvent = nullptr;
    client.close();
    result = client.connect(name);
  };
  EXPECT_EQ(client.core.receive(100), EvtRes_Success);
  EXPECT_EQ(result, EvtRes_Success);
  EXPECT_EQ(client.ask(), EvtRes_Success);
}

TEST_F(Exchange, SurvivesAServerThatStopsWhileItAnswers) {
  connect();
  server.port.onRequest = [&] { server.destroy(); };
  EXPECT_EQ(client.ask(), EvtRes_Closed);
  server.stopPumping();
  EXPECT_EQ(server.port.sessions, 0);
}

}  // namespace
}  // namespace EvtSrv::internal
