#include <thread>

#include "tests/platform/evtsrv/evtsrv_fixture.h"
#include "tests/platform/evtsrv/raw_client.h"

// Replies that are given after the session has returned.

namespace EvtSrv::internal {
namespace {

constexpr std::uint16_t deferred = 100;  // Requests with this code have to wait.

Bytes inOrder(const std::vector<Bytes>& parts) {
  Bytes all;
  for (const Bytes& part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

/// A server without a thread, and a client that speaks the protocol by itself.
class DeferredReplies : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(server.start(name), EvtRes_Success);
    server.port.onRequest = [this] { decide(); };
    connect(raw);
  }
  void connect(RawClient& client) {
    client.makePipes();
    client.writeToMailbox(name, client.hello());
    server.serveAll();
    EXPECT_EQ(client.welcome(), 0);
    RawClient::readAll(client.event);
  }
  void decide() {
    if (defers) {
      reply = server.port.serving->deferReply();
      defers = false;
    }
  }
  /// Has the server read a request whose reply is deferred.
  void request(std::uint32_t sequence = 1) {
    defers = true;
    raw.writeRequest(frame(FrameKind::request, deferred, sequence, "later"));
    server.serveAll();
    ASSERT_NE(reply, nullptr);
  }
  void send(std::uint16_t code, const std::string& text) {
    const std::lock_guard lock(server.mutex);
    const Bytes bytes(text.begin(), text.end());
    reply->send(code, bytes);
  }
  bool isAwaited() {
    const std::lock_guard lock(server.mutex);
    return reply->isAwaited();
  }
  [[nodiscard]] Bytes replies() const { return RawClient::readAll(raw.reply); }

  std::string name = uniquePort();
  EchoServer server;
  RawClient raw;
  bool defers = false;
  std::shared_ptr<DeferredReply> reply;
};

TEST_F(DeferredReplies, AreSentWhenTheyAreGivenAndOnce) {
  request(77);
  EXPECT_EQ(replies(), Bytes());
  EXPECT_TRUE(isAwaited());
  send(9, "done");
  EXPECT_EQ(replies(), frame(FrameKind::reply, 9, 77, "done"));
  EXPECT_FALSE(isAwaited());
  send(9, "again");
  EXPECT_EQ(replies(), Bytes());
  raw.writeRequest(frame(FrameKind::request, 5, 78, "next"));
  server.serveAll();
  EXPECT_EQ(replies(), frame(FrameKind::reply, 5, 78, "next"));
}

TEST_F(DeferredReplies, MayBeGivenAtOnce) {
  server.port.onRequest = [this] {
    reply = server.port.serving->deferReply();
    reply->send(3, Bytes{'a', 't'});
  };
  raw.writeRequest(
      inOrder({frame(FrameKind::request, 5, 1, "x"), frame(FrameKind::request, 5, 2, "y")}));
  server.serveAll();
  EXPECT_EQ(replies(),
            inOrder({frame(FrameKind::reply, 3, 1, "at"), frame(FrameKind::reply, 3, 2, "at")}));
}

TEST_F(DeferredReplies, KeepTheRequestsBehindThemInOrder) {
  defers = true;
  // Two after it have arrived with it, and one arrives afterwards.
  raw.writeRequest(
      inOrder({frame(FrameKind::request, deferred, 1, "x"), frame(FrameKind::request, 5, 2, "two"),
               frame(FrameKind::request, 6, 3, "three")}));
  server.serveAll();
  raw.writeRequest(frame(FrameKind::request, 7, 4, "four"));
  server.serveAll();
  EXPECT_EQ(replies(), Bytes());
  EXPECT_EQ(server.port.handled, 1);
  send(0, "");
  EXPECT_EQ(replies(), frame(FrameKind::reply, 0, 1, ""));
  server.serveAll();
  EXPECT_EQ(replies(),
            inOrder({frame(FrameKind::reply, 5, 2, "two"), frame(FrameKind::reply, 6, 3, "three"),
                     frame(FrameKind::reply, 7, 4, "four")}));
}

TEST_F(DeferredReplies, KeepMoreRequestsThanATurnServes) {
  Bytes many;
  Bytes expected;
  for (std::uint32_t i = 1; i < 200; ++i) {
    many = inOrder({many, frame(FrameKind::request, 5, i, "x")});
    expected = inOrder({expected, frame(FrameKind::reply, 5, i, "x")});
  }
  defers = true;
  raw.writeRequest(inOrder({frame(FrameKind::request, deferred, 0, ""), many}));
  server.serveAll();
  send(0, "");
  EXPECT_EQ(replies(), frame(FrameKind::reply, 0, 0, ""));
  server.serveAll();
  EXPECT_EQ(replies(), expected);
}

TEST_F(DeferredReplies, DelayNeitherOthersNorEvents) {
  request();
  RawClient other;
  connect(other);
  other.writeRequest(frame(FrameKind::request, 5, 1, "other"));
  server.serveAll();
  EXPECT_EQ(RawClient::readAll(other.reply), frame(FrameKind::reply, 5, 1, "other"));
  server.post(40, "event of the other");
  server.serveAll();
  EXPECT_EQ(RawClient::readAll(other.event), frame(FrameKind::event, 40, 0, "event of the other"));
  EXPECT_TRUE(isAwaited());
}

TEST_F(DeferredReplies, LetEventsOfTheirConnectionPass) {
  server.port.onRequest = [this] {
    reply = server.port.serving->deferReply();
    server.port.session->post(41, "within the request");
  };
  raw.writeRequest(frame(FrameKind::request, deferred, 1, ""));
  server.serveAll();
  server.post(42, "after it");
  EXPECT_EQ(RawClient::readAll(raw.event),
            inOrder({frame(FrameKind::event, 41, 0, "within the request"),
                     frame(FrameKind::event, 42, 0, "after it")}));
  EXPECT_EQ(replies(), Bytes());
}

TEST_F(DeferredReplies, OfAClientThatHasGoneAreDropped) {
  request();
  raw.makePipes();
  server.serveAll();
  EXPECT_EQ(server.connectionCount(), 0U);
  EXPECT_EQ(server.port.sessions, 0);
  EXPECT_FALSE(isAwaited());
  send(0, "");
}

TEST_F(DeferredReplies, AfterTheServiceAreDropped) {
  request();
  server.destroy();
  EXPECT_FALSE(isAwaited());
  send(0, "");
  EXPECT_TRUE(raw.hungUp());
}

TEST_F(DeferredReplies, AreAwaitedByAGracefulStop) {
  request();
  raw.writeRequest(frame(FrameKind::request, 5, 2, "too late"));
  server.beginStop();
  server.serveAll();
  EXPECT_TRUE(server.stopping());
  EXPECT_EQ(RawClient::readAll(raw.event), Bytes());
  send(4, "last");
  server.serveAll();
  EXPECT_EQ(replies(), frame(FrameKind::reply, 4, 1, "last"));
  EXPECT_EQ(RawClient::readAll(raw.event), frame(FrameKind::event, 3, 0, ""));
  EXPECT_FALSE(server.stopping());
}

TEST_F(DeferredReplies, ThatDoNotFitAreWrittenWhenTheClientReads) {
  request();
  raw.writeRequest(frame(FrameKind::request, 5, 2, "next"));
  const std::string large(300'000, 'x');
  send(0, large);
  const Bytes whole =
      inOrder({frame(FrameKind::reply, 0, 1, large), frame(FrameKind::reply, 5, 2, "next")});
  Bytes received;
  for (int reads = 0; received.size() < whole.size() && reads < 100; ++reads) {
    received = inOrder({received, replies()});
    server.serveAll();
  }
  EXPECT_EQ(received, whole);
}

TEST_F(DeferredReplies, LeaveTimeForTheRestOfAFrameBehindThem) {
  server.system.timerSpeed = 100;
  const auto halfFrame = [](std::uint32_t sequence) {
    Bytes bytes = frame(FrameKind::request, 5, sequence, "x");
    bytes.pop_back();
    return bytes;
  };
  request();
  raw.writeRequest(halfFrame(2));
  RawClient other;
  connect(other);
  other.writeRequest(halfFrame(2));
  while (server.connectionCount() == 2) {
    static_cast<void>(server.core.receive(1000));
  }
  EXPECT_TRUE(other.hungUp());
  EXPECT_FALSE(raw.hungUp());
  send(0, "");
  raw.writeRequest({'x'});
  server.serveAll();
  EXPECT_EQ(replies(),
            inOrder({frame(FrameKind::reply, 0, 1, ""), frame(FrameKind::reply, 5, 2, "x")}));
}

TEST_F(DeferredReplies, MayBeGivenByAnotherThreadWhileTheServerSleeps) {
  request();
  raw.writeRequest(frame(FrameKind::request, 5, 2, "next"));
  server.pump();
  std::thread([this] { send(0, "from another thread"); }).join();
  const Bytes whole = inOrder({frame(FrameKind::reply, 0, 1, "from another thread"),
                               frame(FrameKind::reply, 5, 2, "next")});
  Bytes received;
  pollfd end{raw.reply, POLLIN, 0};
  while (received.size() < whole.size() && ::poll(&end, 1, 10'000) == 1) {
    received = inOrder({received, replies()});
  }
  EXPECT_EQ(received, whole);
}

}  // namespace
}  // namespace EvtSrv::internal
