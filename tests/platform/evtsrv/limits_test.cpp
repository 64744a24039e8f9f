#include "tests/platform/evtsrv/evtsrv_fixture.h"
#include "tests/platform/evtsrv/raw_client.h"
#include "tests/support/process.h"

// The limits of what one client, and the clients of one user, may take.

namespace EvtSrv::internal {
namespace {

class Limits : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(server.start(name), EvtRes_Success); }

  /// The code of the welcome of a new client, which stays connected.
  std::optional<std::uint16_t> connect() {
    RawClient& client = *clients.emplace_back(std::make_unique<RawClient>());
    client.makePipes();
    client.writeToMailbox(name, client.hello());
    server.serveAll();
    return client.welcome();
  }

  /// Writes to the latest client's pipe until `bytes` have been read by the server.
  void send(Bytes bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
      const ssize_t count =
          ::write(clients.back()->request, bytes.data() + written, bytes.size() - written);
      written += count > 0 ? static_cast<std::size_t>(count) : 0;
      server.serveAll();
    }
  }

  std::string name = uniquePort();
  EchoServer server;
  std::vector<std::unique_ptr<RawClient>> clients;
};

/// A frame of the most bytes, without its last one.
Bytes almostLargestFrame() {
  Bytes bytes = frame(FrameKind::request, 5, 1, std::string(maxPayload, 'x'));
  bytes.pop_back();
  return bytes;
}

TEST_F(Limits, AUserHasAtMost256Sessions) {
  for (std::size_t i = 0; i < limits::sessionsOfUser; ++i) {
    ASSERT_EQ(connect(), EvtRes_Success) << i;
  }
  EXPECT_EQ(connect(), EvtRes_Refused);
  clients.erase(clients.begin());
  server.serveAll();
  EXPECT_EQ(connect(), EvtRes_Success);
}

TEST_F(Limits, SessionsAreKeptForTheOwnerAndForRoot) {
  constexpr uid_t owner = 1;
  constexpr uid_t other = 2;
  constexpr gid_t shared = 7;
  server.recreate();
  server.system.user = owner;
  server.system.owner = owner;
  server.system.group = shared;
  ASSERT_EQ(server.start(name, shared), EvtRes_Success);
  server.system.limit = 3 * 64 + static_cast<int>(openDescriptors());
  const auto connectAs = [this](uid_t user, gid_t group) {
    server.system.owner = user;
    server.system.group = group;
    const auto result = connect();
    if (result != EvtRes_Success) {
      clients.pop_back();
    }
    return result;
  };
  std::size_t others = 0;
  auto result = connectAs(other, shared);
  for (; result == EvtRes_Success; result = connectAs(other, shared)) {
    ++others;
  }
  EXPECT_EQ(result, EvtRes_NoDescriptors);
  EXPECT_GT(others, 10U);
  EXPECT_EQ(connectAs(owner, owner), EvtRes_Success);
  while (connectAs(owner, owner) == EvtRes_Success) {
  }
  EXPECT_EQ(connectAs(owner, owner), EvtRes_NoDescriptors);
  // Root gives its pipes to the owner of the server.
  EXPECT_EQ(connectAs(owner, 0), EvtRes_Success);
}

/// A server of another user, in a child process.
class LimitsOfAnotherUser : public testing::Test {
 protected:
  static constexpr uid_t owner = 34567;

  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "only root can act as two users";
    }
    int ready[2];
    ASSERT_EQ(::pipe2(ready, O_CLOEXEC), 0);
    child = forkChild();
    if (child == 0) {
      serve(ready[1]);
    }
    ::close(ready[1]);
    char started = 0;
    ASSERT_EQ(::read(ready[0], &started, 1), 1);
    ::close(ready[0]);
  }
  void TearDown() override {
    if (child > 0) {
      ::kill(child, SIGKILL);
      ::waitpid(child, nullptr, 0);
      ::unlink(mailboxPath(name).c_str());
    }
  }
  [[noreturn]] void serve(int ready) const {
    EchoServer server;
    server.system.limit = 3 * 64 + static_cast<int>(openDescriptors());
    if (::setgid(owner) != 0 || ::setuid(owner) != 0 || server.start(name) != EvtRes_Success ||
        ::write(ready, "y", 1) != 1) {
      ::_exit(1);
    }
    for (;;) {
      static_cast<void>(server.core.receive(-1));
    }
  }
  /// The code of the welcome of a new client of the server's user.
  std::optional<std::uint16_t> connectAsOwner() {
    RawClient& client = *clients.emplace_back(std::make_unique<RawClient>());
    client.makePipes();
    for (const int pipe : {client.request, client.reply, client.event}) {
      EXPECT_EQ(::fchown(pipe, owner, owner), 0);
    }
    client.writeToMailbox(name, client.hello());
    pollfd welcome{client.reply, POLLIN, 0};
    EXPECT_EQ(::poll(&welcome, 1, test_support::timeoutMilliseconds), 1);
    return client.welcome();
  }

  std::string name = uniquePort();
  pid_t child = -1;
  std::vector<std::unique_ptr<RawClient>> clients;
};

TEST_F(LimitsOfAnotherUser, LeaveASessionForRoot) {
  std::optional<std::uint16_t> code = EvtRes_Success;
  while (code == EvtRes_Success && clients.size() < limits::sessionsOfUser) {
    code = connectAsOwner();
  }
  ASSERT_EQ(code, EvtRes_NoDescriptors);
  EchoClient root;
  EXPECT_EQ(root.connect(name), EvtRes_Success);
  EXPECT_EQ(root.request(), EvtRes_Success);
}

TEST_F(Limits, FramesBegunOfOneUserAreRefusedAboveTheLimit) {
  const Bytes most = almostLargestFrame();
  const std::size_t allowed = limits::bytesOfUser / most.size();
  for (std::size_t i = 0; i < allowed; ++i) {
    ASSERT_EQ(connect(), EvtRes_Success);
    send(most);
    EXPECT_TRUE(RawClient::readAll(clients.back()->reply).empty());
  }
  ASSERT_EQ(connect(), EvtRes_Success);
  send(most);
  send({'x'});
  EXPECT_EQ(RawClient::readAll(clients.back()->reply),
            frame(FrameKind::reply, EvtRes_TooLarge, 1, ""))
      << "the reply to a request that was skipped";
  EXPECT_EQ(server.port.handled, 0);
  send(frame(FrameKind::request, 5, 2, "next"));
  EXPECT_EQ(RawClient::readAll(clients.back()->reply), frame(FrameKind::reply, 5, 2, "next"));
  clients.erase(clients.begin());
  server.serveAll();
  send(most);
  EXPECT_EQ(server.connectionCount(), allowed) << "the memory of the first one is free again";
}

TEST_F(Limits, RepliesThatAreNotReadAreRefusedAboveTheLimit) {
  const Bytes request = frame(FrameKind::request, 5, 1, std::string(maxPayload, 'x'));
  const std::size_t allowed = limits::bytesOfUser / request.size();
  for (std::size_t i = 0; i < allowed; ++i) {
    ASSERT_EQ(connect(), EvtRes_Success);
    send(request);
  }
  EXPECT_EQ(server.port.handled, static_cast<int>(allowed));
  ASSERT_EQ(connect(), EvtRes_Success);
  send(frame(FrameKind::request, 5, 2, std::string(60'000, 'y')));
  EXPECT_EQ(RawClient::readAll(clients.back()->reply),
            frame(FrameKind::reply, 5, 2, std::string(60'000, 'y')))
      << "what the pipe takes is not held";
}

TEST_F(Limits, AFrameThatStopsEndsItsConnectionAfterFiveSeconds) {
  server.system.timerSpeed = 100;
  ASSERT_EQ(connect(), EvtRes_Success);
  send(frame(FrameKind::request, 5, 2, "whole"));
  ASSERT_EQ(connect(), EvtRes_Success);
  Bytes half = frame(FrameKind::request, 5, 1, "half");
  half.pop_back();
  send(half);
  const std::int64_t begin = server.system.nowMs();
  while (server.connectionCount() == 2) {
    static_cast<void>(server.core.receive(1000));
  }
  EXPECT_GE(server.system.nowMs() - begin, 5 * 1000 / server.system.timerSpeed);
  EXPECT_TRUE(clients.back()->hungUp());
  EXPECT_FALSE(clients.front()->hungUp()) << "this one sends nothing";
}

TEST_F(Limits, AFrameThatStopsEndsItsConnectionAlsoIfItsEventPipeIsFull) {
  server.system.timerSpeed = 100;
  ASSERT_EQ(connect(), EvtRes_Success);
  const Bytes events(4096);
  const int pipe = ::open(("/proc/self/fd/" + std::to_string(clients.back()->event)).c_str(),
                          O_WRONLY | O_NONBLOCK);
  ASSERT_GE(pipe, 0);
  while (::write(pipe, events.data(), events.size()) > 0) {
  }
  ::close(pipe);
  send({0});
  ASSERT_EQ(server.connectionCount(), 1U);
  const std::int64_t begin = server.system.nowMs();
  while (server.connectionCount() == 1 && server.system.nowMs() - begin < 10'000) {
    static_cast<void>(server.core.receive(100));
  }
  EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(Limits, AFrameThatGoesOnIsServedHoweverSlowly) {
  server.system.timerSpeed = 1000;
  ASSERT_EQ(connect(), EvtRes_Success);
  const Bytes request = frame(FrameKind::request, 5, 1, "slow");
  for (const std::uint8_t byte : request) {
    send({byte});
    static_cast<void>(server.core.receive(2));
  }
  EXPECT_EQ(RawClient::readAll(clients.back()->reply), frame(FrameKind::reply, 5, 1, "slow"));
}

}  // namespace
}  // namespace EvtSrv::internal
