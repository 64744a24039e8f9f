#include "tests/platform/evtsrv/evtsrv_fixture.h"

namespace EvtSrv::internal {
namespace {

/// A server without a pump, which stands for one that hangs. Only waits that time out
/// advance the clock.
class Stall : public testing::Test {
 protected:
  void connect() {
    ASSERT_EQ(server.start(name), EvtRes_Success);
    server.pump();
    ASSERT_EQ(client.connect(name), EvtRes_Success);
    server.stopPumping();
    server.serveAll();
    client.system.freezeTime();
  }

  std::string name = uniquePort();
  EchoServer server;
  EchoClient client;
};

TEST_F(Stall, BeginsWithATimeoutAndFailsImmediatelyAfterwards) {
  connect();
  const std::int64_t before = client.system.nowMs();
  EXPECT_EQ(client.request(), EvtRes_Timeout);
  const std::int64_t after = client.system.nowMs();
  EXPECT_GE(after - before, replyTimeoutMs);
  client.system.failNext("write", -EIO);
  EXPECT_EQ(client.request(), EvtRes_Stalled);
  EXPECT_FALSE(client.system.hasFailed());
  EXPECT_TRUE(client.isOpen());
}

TEST_F(Stall, BeginsAfterTheSameTimeIfAWaitIsInterrupted) {
  connect();
  client.system.failedWaitMs = replyTimeoutMs * 3 / 4;
  client.system.failNext("poll", -EINTR);
  const std::int64_t before = client.system.nowMs();
  EXPECT_EQ(client.request(), EvtRes_Timeout);
  EXPECT_TRUE(client.system.hasFailed());
  EXPECT_GE(client.system.nowMs() - before, replyTimeoutMs);
  EXPECT_LT(client.system.nowMs() - before, replyTimeoutMs * 5 / 4);
}

TEST_F(Stall, LosesNothingOfASmallRequestThatIsPartlyWritten) {
  connect();
  EXPECT_EQ(client.core.receive(0), EvtRes_Success);
  client.system.writeLimit = 7;
  // Each event allows one more request; in the end the pipe is full.
  for (std::size_t i = 0; i < 1000; ++i) {
    std::string text(80 + i % 20, 'x');
    ASSERT_EQ(client.request(text), EvtRes_Timeout);
    server.post(2, "activity");
    ASSERT_EQ(client.core.receive(0), EvtRes_Success);
  }
  server.serveAll();
  EXPECT_LT(server.port.handled, 1000);
  client.system.whileWaiting = [&] { server.serveAll(); };
  std::string text = "the next one";
  EXPECT_EQ(client.request(text), EvtRes_Success);
  EXPECT_EQ(text, "the next one");
}

TEST_F(Stall, EndsWithALateReplyWhichIsDropped) {
  connect();
  std::string late = "late";
  EXPECT_EQ(client.request(late, 1), EvtRes_Timeout);
  server.serveAll();
  EXPECT_EQ(server.port.handled, 1);
  client.system.whileWaiting = [&] { server.serveAll(); };
  std::string text = "new";
  EXPECT_EQ(client.request(text, 2), EvtRes_Success);
  EXPECT_EQ(text, "new");
  EXPECT_EQ(client.code, 2);
}

TEST_F(Stall, EndsWithAnEvent) {
  connect();
  EXPECT_EQ(client.core.receive(0), EvtRes_Success);
  EXPECT_EQ(client.request(), EvtRes_Timeout);
  EXPECT_EQ(client.request(), EvtRes_Stalled);
  server.post(2, "activity");
  EXPECT_EQ(client.core.receive(0), EvtRes_Success);
  EXPECT_EQ(client.request(), EvtRes_Timeout) << "the request is sent again";
}

TEST_F(Stall, EndsWhenTheServerReadsTheRequest) {
  connect();
  std::string large(1 << 20, 'x');
  EXPECT_EQ(client.request(large), EvtRes_Timeout);
  EXPECT_EQ(client.request(large), EvtRes_Stalled);
  EXPECT_EQ(server.core.receive(0), EvtRes_Success);
  std::string text = "the next one";
  EXPECT_EQ(client.request(text), EvtRes_Timeout) << "the rest of the first one is written before";
  EXPECT_EQ(client.request(text), EvtRes_Stalled);
  EXPECT_EQ(server.port.handled, 0);
}

TEST_F(Stall, EndsEvenIfALateReplyAndTheNextRequestBothWaitForTheirPipes) {
  connect();
  constexpr std::size_t size = 1 << 20;
  int reads = 0;
  client.system.whileWaiting = [&] {
    if (++reads < 8) {
      static_cast<void>(server.core.receive(0));
    }
  };
  std::string late(size, 'l');
  EXPECT_EQ(client.request(late), EvtRes_Timeout);
  client.system.whileWaiting = [&] { server.serveAll(); };
  server.serveAll();
  std::string text(size, 'n');
  EXPECT_EQ(client.request(text), EvtRes_Success);
  EXPECT_TRUE(text == std::string(size, 'n'));
  EXPECT_EQ(server.port.handled, 2);
}

TEST_F(Stall, EndsIfTheServerEndsWhileTheRestOfARequestIsWritten) {
  connect();
  std::string large(1 << 20, 'x');
  EXPECT_EQ(client.request(large), EvtRes_Timeout);
  EXPECT_EQ(server.core.receive(0), EvtRes_Success);
  int reads = 0;
  client.system.whileWaiting = [&] {
    if (++reads < 3) {
      static_cast<void>(server.core.receive(0));
    } else {
      server.destroy();
    }
  };
  EXPECT_EQ(client.request(), EvtRes_Closed);
  EXPECT_EQ(reads, 3);
  EXPECT_EQ(client.request(), EvtRes_Closed);
}

TEST_F(Stall, IsNotEndedByAWritablePipeThatAnEarlierStallWaitedFor) {
  connect();
  EXPECT_EQ(client.core.receive(0), EvtRes_Success);
  std::string large(1 << 20, 'x');
  EXPECT_EQ(client.request(large), EvtRes_Timeout);
  server.post(2, "activity");
  EXPECT_EQ(client.core.receive(0), EvtRes_Success);
  client.system.whileWaiting = [&] { server.serveAll(); };
  EXPECT_EQ(client.request(), EvtRes_Success);
  client.system.whileWaiting = nullptr;
  EXPECT_EQ(client.request(), EvtRes_Timeout);
  EXPECT_EQ(client.request(), EvtRes_Stalled);
}

TEST_F(Stall, EndsWithALateReplyBeforeAReplyThatArrivesInParts) {
  connect();
  std::string late(100, 'l');
  EXPECT_EQ(client.request(late, 1), EvtRes_Timeout);
  client.system.readLimit = 7;
  server.serveAll();
  client.system.whileWaiting = [&] { server.serveAll(); };
  std::string text(100, 'n');
  EXPECT_EQ(client.request(text, 2), EvtRes_Success);
  EXPECT_EQ(text, std::string(100, 'n'));
  EXPECT_EQ(client.code, 2);
}

TEST_F(Stall, OfAStoppedServerEndsWhenItContinues) {
  int ready[2];
  ASSERT_EQ(::pipe2(ready, O_CLOEXEC), 0);
  const pid_t child = forkChild();
  if (child == 0) {
    EchoServer served;
    const char started = served.start(name) == EvtRes_Success ? 'y' : 'n';
    if (::write(ready[1], &started, 1) != 1) {
      ::_exit(1);
    }
    for (;;) {
      static_cast<void>(served.core.receive(-1));
    }
  }
  char started = 0;
  ASSERT_EQ(::read(ready[0], &started, 1), 1);
  ASSERT_EQ(client.connect(name), EvtRes_Success);
  ASSERT_EQ(::kill(child, SIGSTOP), 0);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, WUNTRACED), child);
  EchoClient frozen;
  frozen.system.freezeTime();
  EXPECT_EQ(frozen.connect(name), EvtRes_Timeout);
  bool renewed = true;
  EXPECT_EQ(frozen.resume(renewed), EvtRes_Stalled);
  EXPECT_EQ(frozen.request(), EvtRes_Stalled);
  ASSERT_EQ(::kill(child, SIGCONT), 0);
  EXPECT_EQ(client.request(), EvtRes_Success);
  EXPECT_EQ(frozen.resume(renewed), EvtRes_Success) << "hellos are served in order";
  EXPECT_TRUE(renewed);
  ASSERT_EQ(::kill(child, SIGKILL), 0);
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(client.request(), EvtRes_Closed);
  EXPECT_EQ(client.resume(renewed), EvtRes_NoServer);
  ::unlink(mailboxPath(name).c_str());
  ::close(ready[0]);
  ::close(ready[1]);
}

TEST_F(Stall, OfAHandshakeEndsWhenTheServerEnds) {
  ASSERT_EQ(server.start(name), EvtRes_Success);
  client.system.freezeTime();
  EXPECT_EQ(client.connect(name), EvtRes_Timeout);
  EXPECT_FALSE(client.isOpen());
  bool renewed = true;
  EXPECT_EQ(client.resume(renewed), EvtRes_Stalled);
  server.destroy();
  EXPECT_EQ(client.resume(renewed), EvtRes_NoServer);
}

TEST_F(Stall, OfAHandshakeEndsWithTheWelcome) {
  ASSERT_EQ(server.start(name), EvtRes_Success);
  client.system.freezeTime();
  EXPECT_EQ(client.connect(name), EvtRes_Timeout);
  server.serveAll();
  bool renewed = false;
  EXPECT_EQ(client.resume(renewed), EvtRes_Success);
  EXPECT_TRUE(renewed);
  EXPECT_TRUE(client.isOpen());
}

}  // namespace
}  // namespace EvtSrv::internal
