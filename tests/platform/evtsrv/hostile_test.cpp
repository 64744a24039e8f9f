#include <algorithm>

#include "tests/platform/evtsrv/evtsrv_fixture.h"
#include "tests/platform/evtsrv/raw_client.h"

namespace EvtSrv::internal {
namespace {

class Hostile : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(server.start(name), EvtRes_Success);
    client.system.freezeTime();
    client.system.whileWaiting = [&] { server.serveAll(); };
    ASSERT_EQ(client.connect(name), EvtRes_Success);
  }
  void TearDown() override {
    EXPECT_EQ(client.request(), EvtRes_Success) << "other clients are not affected";
  }
  void connect(RawClient& raw) {
    raw.makePipes();
    raw.writeToMailbox(name, raw.hello());
    server.serveAll();
    ASSERT_EQ(server.connectionCount(), 2U);
  }

  std::string name = uniquePort();
  EchoServer server;
  EchoClient client;
};

TEST_F(Hostile, RawClientGetsTheWelcomeTheStartedEventAndAReply) {
  RawClient raw;
  connect(raw);
  EXPECT_EQ(RawClient::readAll(raw.reply), frame(FrameKind::welcome, 0, 0, ""));
  EXPECT_EQ(RawClient::readAll(raw.event), frame(FrameKind::event, 1, 0, ""));
  raw.writeRequest(frame(FrameKind::request, 5, 77, "hello"));
  server.serveAll();
  EXPECT_EQ(RawClient::readAll(raw.reply), frame(FrameKind::reply, 5, 77, "hello"));
}

TEST_F(Hostile, RequestInTheOtherByteOrderGetsAReply) {
  RawClient raw;
  connect(raw);
  RawClient::readAll(raw.reply);
  Bytes request = frame(FrameKind::request, 5, 77, "x");
  request[0] = request[0] == 0 ? 1 : 0;
  std::reverse(request.begin() + 2, request.begin() + 4);
  std::reverse(request.begin() + 4, request.begin() + 8);
  std::reverse(request.begin() + 12, request.begin() + 16);
  raw.writeRequest(request);
  server.serveAll();
  EXPECT_EQ(RawClient::readAll(raw.reply), frame(FrameKind::reply, 5, 77, "x"));
}

TEST_F(Hostile, FramesCloseOnlyTheirOwnConnection) {
  Bytes oversized = frame(FrameKind::request, 1, 1, "");
  const std::uint32_t length = maxPayload + 1;
  std::memcpy(oversized.data() + 12, &length, sizeof length);
  Bytes order = frame(FrameKind::request, 1, 1, "");
  order[0] = 2;
  for (const Bytes& bad : {oversized, order, frame(FrameKind::reply, 1, 1, ""),
                           frame(FrameKind::event, 1, 1, ""), Bytes(500, 0xA5)}) {
    RawClient raw;
    connect(raw);
    raw.writeRequest(bad);
    server.serveAll();
    EXPECT_EQ(server.connectionCount(), 1U);
    EXPECT_TRUE(raw.hungUp());
  }
}

TEST_F(Hostile, GarbageInTheMailboxDoesNotHideAHello) {
  RawClient raw;
  raw.makePipes();
  Bytes bytes(2000, 0x9E);
  const Bytes hello = raw.hello();
  bytes.insert(bytes.end(), hello.begin(), hello.end() - 1);
  bytes.insert(bytes.end(), hello.begin(), hello.end());
  raw.writeToMailbox(name, bytes);
  server.serveAll();
  EXPECT_EQ(server.connectionCount(), 2U);
}

TEST_F(Hostile, HelloWithoutPipesIsIgnored) {
  RawClient raw;
  raw.writeToMailbox(name, raw.hello());
  server.serveAll();
  EXPECT_EQ(server.connectionCount(), 1U);
}

TEST_F(Hostile, FrameThatArrivesByteByByteGetsAReply) {
  RawClient raw;
  connect(raw);
  RawClient::readAll(raw.reply);
  for (const std::uint8_t byte : frame(FrameKind::request, 9, 3, "slow")) {
    raw.writeRequest({byte});
    server.serveAll();
  }
  EXPECT_EQ(RawClient::readAll(raw.reply), frame(FrameKind::reply, 9, 3, "slow"));
}

TEST_F(Hostile, ClientThatReadsNoReplyIsNotReadAnyMore) {
  RawClient raw;
  connect(raw);
  RawClient::readAll(raw.reply);
  const std::string text(60000, 'r');
  for (int i = 0; i < 2; ++i) {
    raw.writeRequest(frame(FrameKind::request, 1, 1, text));
    server.serveAll();
  }
  const int handled = server.port.handled;
  raw.writeRequest(frame(FrameKind::request, 1, 3, text));
  server.serveAll();
  EXPECT_EQ(server.port.handled, handled) << "the last reply still waits for the pipe";
  std::size_t received = 0;
  for (int i = 0; i < 10; ++i) {
    received += RawClient::readAll(raw.reply).size();
    server.serveAll();
  }
  EXPECT_EQ(received, 3 * (FrameHeader::size + text.size()));
}

TEST_F(Hostile, ClientsThatWriteOrHangUpDuringTheirRequestCauseNoBusyLoop) {
  for (const bool hangsUp : {false, true}) {
    auto raw = std::make_unique<RawClient>();
    connect(*raw);
    int waits = 0;
    bool isFirst = true;
    server.port.onRequest = [&] {
      if (!std::exchange(isFirst, false)) {
        return;
      }
      if (hangsUp) {
        raw.reset();
      } else {
        raw->writeRequest(frame(FrameKind::request, 1, 2, "more"));
      }
      const int before = server.system.waits;
      static_cast<void>(server.core.receive(20));
      waits = server.system.waits - before;
    };
    raw->writeRequest(frame(FrameKind::request, 1, 1, "first"));
    const int handled = server.port.handled;
    server.serveAll();
    EXPECT_LE(waits, 4) << hangsUp;
    EXPECT_EQ(server.port.handled - handled, hangsUp ? 1 : 2);
    server.port.onRequest = nullptr;
    raw.reset();
    server.serveAll();
    EXPECT_EQ(server.connectionCount(), 1U);
  }
}

TEST_F(Hostile, RequestsInAdvanceAreServedInOrderByAHandlerThatDispatches) {
  RawClient raw;
  connect(raw);
  RawClient::readAll(raw.reply);
  constexpr std::size_t almostThePipe = 60000;
  raw.writeRequest(frame(FrameKind::request, 0, 1, std::string(almostThePipe, '1')));
  server.serveAll();
  // The second reply waits for the pipe, and the other requests wait for it.
  raw.writeRequest(frame(FrameKind::request, 0, 2, std::string(almostThePipe, '2')));
  raw.writeRequest(frame(FrameKind::request, 0, 3, "3"));
  raw.writeRequest(frame(FrameKind::request, 0, 4, "4"));
  server.serveAll();
  EXPECT_EQ(server.port.handled, 2);
  int nested = 0;
  server.port.onRequest = [&] {
    const int handled = server.port.handled;
    server.serveAll();
    nested += server.port.handled - handled;
  };
  Bytes replies;
  for (Bytes some = RawClient::readAll(raw.reply); !some.empty();
       some = RawClient::readAll(raw.reply)) {
    replies.insert(replies.end(), some.begin(), some.end());
    server.serveAll();
  }
  server.port.onRequest = nullptr;
  EXPECT_EQ(nested, 0);
  Bytes expected;
  for (const Bytes& reply :
       {frame(FrameKind::reply, 0, 1, std::string(almostThePipe, '1')),
        frame(FrameKind::reply, 0, 2, std::string(almostThePipe, '2')),
        frame(FrameKind::reply, 0, 3, "3"), frame(FrameKind::reply, 0, 4, "4")}) {
    expected.insert(expected.end(), reply.begin(), reply.end());
  }
  EXPECT_TRUE(replies == expected);
}

TEST_F(Hostile, ClientWhoseSessionRanOutOfMemoryIsDisconnected) {
  const std::size_t others = server.connectionCount();
  server.port.onOpen = [] { throw std::bad_alloc(); };
  RawClient raw;
  raw.makePipes();
  raw.writeToMailbox(name, raw.hello());
  raw.writeRequest(frame(FrameKind::request, 5, 77, "hello"));
  server.serveAll();
  EXPECT_EQ(server.connectionCount(), others);
  EXPECT_TRUE(raw.hungUp());
  EXPECT_EQ(server.port.handled, 0);
  server.port.onOpen = nullptr;
  RawClient other;
  connect(other);
  EXPECT_EQ(server.connectionCount(), others + 1) << "other clients are not affected";
}

TEST_F(Hostile, ClientThatHangsUpWithinAFrameLeavesNothing) {
  {
    RawClient raw;
    connect(raw);
    Bytes part = frame(FrameKind::request, 1, 1, std::string(1000, 'p'));
    part.resize(500);
    raw.writeRequest(part);
    server.serveAll();
  }
  server.serveAll();
  EXPECT_EQ(server.connectionCount(), 1U);
  EXPECT_EQ(server.port.sessions, 1);
}

}  // namespace
}  // namespace EvtSrv::internal
