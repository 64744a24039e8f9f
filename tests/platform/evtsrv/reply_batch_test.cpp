#include "evtsrv/source/reply_batch.h"

#include <deque>

#include "tests/platform/evtsrv/evtsrv_fixture.h"
#include "tests/platform/evtsrv/raw_client.h"

// The replies of one dispatch to many clients.

namespace EvtSrv::internal {
namespace {

constexpr std::uint16_t shortRequest = 7;
constexpr std::uint16_t longRequest = 8;

Bytes replyTo(std::uint16_t operation, std::uint32_t sequence) {
  return frame(FrameKind::reply, operation, sequence, "text");
}

class RepliesOfADispatch : public testing::Test {
 protected:
  void SetUp() override {
    if (!submitsWrites) {
      GTEST_SKIP() << "this build does not submit writes";
    }
    std::uint64_t queue = 0;
    if (posixSystem().createWriteQueue(queue) < 0) {
      GTEST_SKIP() << "the system does not submit writes";
    }
    posixSystem().destroyWriteQueue(queue);
    server.port.shortOperation = shortRequest;
    ASSERT_EQ(server.start(name), EvtRes_Success);
  }
  void connect(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      RawClient& client = clients.emplace_back();
      ASSERT_NO_FATAL_FAILURE(client.makePipes());
      ASSERT_NO_FATAL_FAILURE(client.writeToMailbox(name, client.hello()));
      server.serveAll();
      RawClient::readAll(client.reply);
      RawClient::readAll(client.event);
    }
    server.system.writes = 0;
    // However long the server waits for a processor.
    server.system.setNs = 1;
  }
  static void request(const RawClient& client, std::uint32_t sequence,
                      std::uint16_t operation = shortRequest) {
    client.writeRequest(frame(FrameKind::request, operation, sequence, "text"));
  }
  void requestOfAll(std::uint32_t sequence) {
    for (const RawClient& client : clients) {
      request(client, sequence);
    }
  }
  /// How many clients have the reply to that request, and nothing else.
  int replied(std::uint32_t sequence) {
    int count = 0;
    for (const RawClient& client : clients) {
      count += RawClient::readAll(client.reply) == replyTo(shortRequest, sequence) ? 1 : 0;
    }
    return count;
  }
  static bool hasInput(int pipe) {
    pollfd end{pipe, POLLIN, 0};
    return ::poll(&end, 1, 0) == 1 && (end.revents & POLLIN) != 0;
  }

  std::string name = uniquePort();
  EchoServer server;
  std::deque<RawClient> clients;
};

TEST_F(RepliesOfADispatch, AreWrittenByOneCall) {
  connect(32);
  for (std::uint32_t sequence = 1; sequence <= 3; ++sequence) {
    requestOfAll(sequence);
    EXPECT_EQ(server.core.receive(0), EvtRes_Success);
    EXPECT_EQ(replied(sequence), 32);
  }
  EXPECT_EQ(server.system.submissions, 3);
  EXPECT_EQ(server.system.submittedWrites, 96U);
  EXPECT_EQ(server.system.writes, 0);
}

TEST_F(RepliesOfADispatch, ToMoreClientsThanOneCallServesAreWritten) {
  connect(maxQueuedWrites + 5);
  requestOfAll(1);
  server.serveAll();
  EXPECT_EQ(replied(1), static_cast<int>(maxQueuedWrites) + 5);
}

TEST_F(RepliesOfADispatch, ToFewClientsAreWrittenAtOnce) {
  connect(ReplyBatch::minReady - 1);
  requestOfAll(1);
  EXPECT_EQ(server.core.receive(0), EvtRes_Success);
  EXPECT_EQ(replied(1), static_cast<int>(ReplyBatch::minReady) - 1);
  EXPECT_EQ(server.system.submissions, 0);
}

TEST_F(RepliesOfADispatch, AreWrittenOneByOneIfTheSystemHasNoQueue) {
  connect(16);
  server.system.failNext("createWriteQueue", -EAGAIN, 0, 100);
  for (std::uint32_t sequence = 1; sequence <= 2; ++sequence) {
    requestOfAll(sequence);
    server.serveAll();
    EXPECT_EQ(replied(sequence), 16);
  }
  EXPECT_EQ(server.system.submissions, 0);
}

TEST_F(RepliesOfADispatch, AreWrittenOneByOneIfTheyCannotBeSubmitted) {
  connect(16);
  server.system.failNext("submitWrites", -EINVAL, 0, 100);
  for (std::uint32_t sequence = 1; sequence <= 2; ++sequence) {
    requestOfAll(sequence);
    server.serveAll();
    EXPECT_EQ(replied(sequence), 16);
  }
  EXPECT_EQ(server.system.submissions, 1) << "it is not tried again";
}

TEST_F(RepliesOfADispatch, AreAllWrittenIfOnlySomeCouldBeSubmitted) {
  connect(16);
  server.system.submitLimit = 3;
  requestOfAll(1);
  server.serveAll();
  EXPECT_EQ(replied(1), 16);
  EXPECT_EQ(server.system.writes, 13);
}

TEST_F(RepliesOfADispatch, WaitForTheirOwnPipeOnly) {
  connect(16);
  // A writing end of its own fills the pipe of one client's replies.
  const std::string path = "/proc/self/fd/" + std::to_string(clients[4].reply);
  const int writer = ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(writer, 0);
  const Bytes filling(4096, 'x');
  std::size_t filled = 0;
  while (::write(writer, filling.data(), filling.size()) > 0) {
    filled += filling.size();
  }
  ::close(writer);
  requestOfAll(1);
  server.serveAll();
  for (std::size_t i = 0; i < clients.size(); ++i) {
    if (i != 4) {
      EXPECT_EQ(RawClient::readAll(clients[i].reply), replyTo(shortRequest, 1)) << i;
    }
  }
  while (filled > 0) {
    const std::size_t count = RawClient::readAll(clients[4].reply).size();
    ASSERT_GT(count, 0U);
    filled -= count;
  }
  server.serveAll();
  EXPECT_EQ(RawClient::readAll(clients[4].reply), replyTo(shortRequest, 1));
}

TEST_F(RepliesOfADispatch, ToAClientThatIsGoneEndItsConnectionOnly) {
  connect(16);
  requestOfAll(1);
  ::close(std::exchange(clients.back().reply, -1));
  server.serveAll();
  EXPECT_EQ(server.port.sessions, 15);
  clients.pop_back();
  EXPECT_EQ(replied(1), 15);
}

TEST_F(RepliesOfADispatch, ToPipelinedRequestsKeepTheirOrder) {
  connect(16);
  requestOfAll(1);
  request(clients[2], 2);
  request(clients[2], 3);
  server.serveAll();
  Bytes expected;
  for (std::uint32_t sequence = 1; sequence <= 3; ++sequence) {
    const Bytes one = replyTo(shortRequest, sequence);
    expected.insert(expected.end(), one.begin(), one.end());
  }
  EXPECT_EQ(RawClient::readAll(clients[2].reply), expected);
}

TEST_F(RepliesOfADispatch, AreWrittenBeforeARequestThatMayTakeLong) {
  connect(16);
  int repliesBefore = -1;
  server.port.onRequest = [&] {
    if (server.port.handled == 16) {
      repliesBefore = static_cast<int>(
          std::count_if(clients.begin(), clients.end(),
                        [](const RawClient& client) { return hasInput(client.reply); }));
    }
  };
  for (const RawClient& client : clients) {
    request(client, 1, &client == &clients.back() ? longRequest : shortRequest);
  }
  EXPECT_EQ(server.core.receive(0), EvtRes_Success);
  EXPECT_EQ(repliesBefore, 15);
  EXPECT_EQ(RawClient::readAll(clients.back().reply), replyTo(longRequest, 1));
}

TEST_F(RepliesOfADispatch, AreWrittenBeforeAWaitInsideIt) {
  connect(16);
  int repliesBefore = -1;
  server.port.onRequest = [&] {
    if (server.port.handled == 10) {
      static_cast<void>(server.core.receive(0));
      repliesBefore = static_cast<int>(
          std::count_if(clients.begin(), clients.end(),
                        [](const RawClient& client) { return hasInput(client.reply); }));
    }
  };
  requestOfAll(1);
  server.serveAll();
  EXPECT_GE(repliesBefore, 9);
  EXPECT_EQ(replied(1), 16);
}

TEST_F(RepliesOfADispatch, DoNotWaitForOthersForLong) {
  connect(16);
  int mostMissing = 0;
  server.port.onRequest = [&] {
    const auto written = std::count_if(clients.begin(), clients.end(), [](const RawClient& client) {
      return hasInput(client.reply);
    });
    mostMissing = std::max(mostMissing, server.port.handled - 1 - static_cast<int>(written));
    server.system.setNs += ReplyBatch::maxHeldNs / 2;
  };
  requestOfAll(1);
  server.serveAll();
  EXPECT_LE(mostMissing, 3);
  EXPECT_EQ(replied(1), 16);
}

TEST_F(RepliesOfADispatch, AreWrittenBeforeTheServerStops) {
  connect(16);
  server.port.onRequest = [&] {
    if (server.port.handled == 10) {
      server.destroy();
    }
  };
  requestOfAll(1);
  server.serveAll();
  EXPECT_GE(replied(1), 9);
}

}  // namespace
}  // namespace EvtSrv::internal
