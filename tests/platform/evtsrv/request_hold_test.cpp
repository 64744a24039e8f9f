#include <poll.h>

#include <thread>

#include "tests/platform/evtsrv/evtsrv_fixture.h"
#include "tests/platform/evtsrv/raw_client.h"

// Sessions that hold their client's requests back from the beginning.

namespace EvtSrv::internal {
namespace {

/// A server without a thread that holds each session, and clients that speak the protocol by
/// themselves.
class RequestHolds : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(server.start(name), EvtRes_Success);
    server.port.onOpened = [this](ServerConnection& connection) {
      holds.push_back(connection.holdRequests());
    };
  }
  /// Makes the connection; its welcome and its started event are there.
  void connect(RawClient& client) {
    client.makePipes();
    client.writeToMailbox(name, client.hello());
    server.serveAll();
    EXPECT_EQ(client.welcome(), 0);
    EXPECT_EQ(RawClient::readAll(client.event), frame(FrameKind::event, 1, 0, ""));
  }
  void release(std::size_t index = 0) {
    const std::lock_guard lock(server.mutex);
    holds.at(index)->release();
  }
  bool isInEffect(std::size_t index = 0) {
    const std::lock_guard lock(server.mutex);
    return holds.at(index)->isInEffect();
  }

  const Bytes request = frame(FrameKind::request, 5, 1, "first");
  const Bytes reply = frame(FrameKind::reply, 5, 1, "first");
  std::string name = uniquePort();
  EchoServer server;
  std::vector<std::shared_ptr<RequestHold>> holds;
};

TEST_F(RequestHolds, LeaveRequestsInThePipeUntilTheyAreReleased) {
  RawClient raw;
  connect(raw);
  EXPECT_TRUE(isInEffect());
  raw.writeRequest(request);
  raw.writeRequest(frame(FrameKind::request, 6, 2, "second"));
  server.serveAll();
  EXPECT_EQ(server.port.handled, 0);
  release();
  EXPECT_FALSE(isInEffect());
  EXPECT_EQ(server.port.handled, 0) << "requests are served by dispatches only";
  server.serveAll();
  Bytes both = reply;
  const Bytes second = frame(FrameKind::reply, 6, 2, "second");
  both.insert(both.end(), second.begin(), second.end());
  EXPECT_EQ(RawClient::readAll(raw.reply), both);
  release();
  raw.writeRequest(request);
  server.serveAll();
  EXPECT_EQ(RawClient::readAll(raw.reply), reply);
}

TEST_F(RequestHolds, ReleasedBeforeARequestOrAtOnceHaveNoEffect) {
  RawClient raw;
  connect(raw);
  release();
  raw.writeRequest(request);
  server.serveAll();
  EXPECT_EQ(RawClient::readAll(raw.reply), reply);
  server.port.onOpened = [](ServerConnection& connection) {
    const auto hold = connection.holdRequests();
    EXPECT_TRUE(hold->isInEffect());
    hold->release();
    EXPECT_FALSE(hold->isInEffect());
  };
  RawClient other;
  connect(other);
  other.writeRequest(request);
  server.serveAll();
  EXPECT_EQ(RawClient::readAll(other.reply), reply);
}

TEST_F(RequestHolds, DelayNeitherOtherClientsNorEvents) {
  RawClient raw;
  connect(raw);
  raw.writeRequest(request);
  server.post(40, "event");
  RawClient other;
  connect(other);
  release(1);
  other.writeRequest(request);
  server.serveAll();
  EXPECT_EQ(RawClient::readAll(other.reply), reply);
  EXPECT_EQ(RawClient::readAll(raw.event), frame(FrameKind::event, 40, 0, "event"));
  EXPECT_EQ(RawClient::readAll(raw.reply), Bytes());
  EXPECT_TRUE(isInEffect());
}

TEST_F(RequestHolds, OfAClientThatHasGoneHaveNoEffect) {
  RawClient raw;
  connect(raw);
  raw.writeRequest(request);
  raw.makePipes();
  server.serveAll();
  EXPECT_EQ(server.connectionCount(), 0U);
  EXPECT_EQ(server.port.sessions, 0);
  EXPECT_EQ(server.port.handled, 0);
  EXPECT_FALSE(isInEffect());
  release();
  server.serveAll();
}

TEST_F(RequestHolds, EndWithTheService) {
  RawClient raw;
  connect(raw);
  server.destroy();
  EXPECT_TRUE(raw.hungUp());
  EXPECT_FALSE(isInEffect());
  release();
}

TEST_F(RequestHolds, DoNotDelayAGracefulStop) {
  RawClient raw;
  connect(raw);
  raw.writeRequest(request);
  server.beginStop();
  server.serveAll();
  EXPECT_FALSE(server.stopping());
  EXPECT_EQ(RawClient::readAll(raw.event), frame(FrameKind::event, 3, 0, ""));
  EXPECT_EQ(RawClient::readAll(raw.reply), Bytes());
  EXPECT_TRUE(raw.hungUp());
  EXPECT_FALSE(isInEffect());
  release();
}

TEST_F(RequestHolds, MayBeMadeWhileTheServiceEnds) {
  RawClient first;
  server.port.onOpened = [this](ServerConnection& connection) {
    holds.push_back(connection.holdRequests());
    server.server->beginStop();
  };
  first.makePipes();
  first.writeToMailbox(name, first.hello());
  server.serveAll();
  EXPECT_EQ(first.welcome(), 0);
  Bytes events = frame(FrameKind::event, 1, 0, "");
  const Bytes stopped = frame(FrameKind::event, 3, 0, "");
  events.insert(events.end(), stopped.begin(), stopped.end());
  EXPECT_EQ(RawClient::readAll(first.event), events);
  EXPECT_FALSE(server.stopping());
  EXPECT_FALSE(isInEffect());
  EXPECT_EQ(server.port.sessions, 0);

  server.recreate();
  ASSERT_EQ(server.start(name), EvtRes_Success);
  server.port.onOpened = [this](ServerConnection& connection) {
    holds.push_back(connection.holdRequests());
    server.server->close();
  };
  RawClient second;
  second.makePipes();
  second.writeToMailbox(name, second.hello());
  server.serveAll();
  EXPECT_TRUE(second.hungUp());
  EXPECT_FALSE(isInEffect(1));
  EXPECT_EQ(server.port.sessions, 0);
}

TEST_F(RequestHolds, EndWithAClientThatLeavesInsideTheHook) {
  RawClient raw;
  server.port.onOpened = [&](ServerConnection& connection) {
    holds.push_back(connection.holdRequests());
    raw.makePipes();
    server.serveAll();
  };
  raw.makePipes();
  raw.writeToMailbox(name, raw.hello());
  server.serveAll();
  EXPECT_EQ(server.connectionCount(), 0U);
  EXPECT_EQ(server.port.sessions, 0);
  EXPECT_FALSE(isInEffect());
}

TEST_F(RequestHolds, EndWithASessionWhoseProgramThrows) {
  server.port.onOpened = [this](ServerConnection& connection) {
    holds.push_back(connection.holdRequests());
    throw std::runtime_error("of the program");
  };
  RawClient raw;
  raw.makePipes();
  raw.writeToMailbox(name, raw.hello());
  EXPECT_THROW(server.serveAll(), std::runtime_error);
  EXPECT_FALSE(isInEffect());
  EXPECT_EQ(server.port.sessions, 0);
  EXPECT_TRUE(raw.hungUp());
  server.port.onOpened = nullptr;
  RawClient other;
  connect(other);
  other.writeRequest(request);
  server.serveAll();
  EXPECT_EQ(RawClient::readAll(other.reply), reply);
}

TEST_F(RequestHolds, MayBeReleasedByAnotherThreadWhileTheServerSleeps) {
  RawClient raw;
  connect(raw);
  raw.writeRequest(request);
  server.pump();
  std::thread([this] { release(); }).join();
  pollfd end{raw.reply, POLLIN, 0};
  ASSERT_EQ(::poll(&end, 1, 10'000), 1);
  EXPECT_EQ(RawClient::readAll(raw.reply), reply);
}

}  // namespace
}  // namespace EvtSrv::internal
