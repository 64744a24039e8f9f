#include "tests/platform/evtsrv/return_fixture.h"

// Requests whose replies are not waited for.

namespace EvtSrv::internal {
namespace {

using namespace std::chrono_literals;

class Posted : public Return {
 protected:
  EvtRes post(std::uint16_t operation, std::size_t size = 20) {
    const std::lock_guard lock(client.mutex);
    const std::vector<std::uint8_t> payload(size);
    return client.client->post(operation, payload);
  }
  EvtRes flush() {
    const std::lock_guard lock(client.mutex);
    return client.client->flushPosted();
  }
  EvtRes await() {
    const std::lock_guard lock(client.mutex);
    Deadline deadline = client.replyDeadline();
    return client.client->awaitPosted(deadline);
  }
  static std::vector<std::uint16_t> numbers(std::uint16_t end) {
    std::vector<std::uint16_t> all;
    for (std::uint16_t i = 1; i < end; ++i) {
      all.push_back(i);
    }
    return all;
  }
};

TEST_F(Posted, RequestsGetTheirRepliesFromDispatchesInOrder) {
  for (std::uint16_t i = 1; i < 60; ++i) {
    ASSERT_EQ(post(i), EvtRes_Success);
  }
  ASSERT_EQ(flush(), EvtRes_Success);
  ASSERT_TRUE(client.loop.runUntil([&] { return client.replies.size() == 59; }));
  EXPECT_EQ(client.replies, numbers(60));
  EXPECT_EQ(client.loop.runUntilQuiet(), 0);
}

TEST_F(Posted, RequestsGoBeforeALaterExchange) {
  ASSERT_EQ(post(1), EvtRes_Success);
  ASSERT_EQ(post(2), EvtRes_Success);
  EXPECT_EQ(client.request(), EvtRes_Success);
  EXPECT_EQ(client.replies, numbers(3));
  client.loop.runUntilQuiet();
  EXPECT_EQ(client.replies, numbers(3));
}

TEST_F(Posted, RequestsCanBeAwaited) {
  ASSERT_EQ(post(1), EvtRes_Success);
  EXPECT_EQ(await(), EvtRes_Success);
  EXPECT_EQ(client.replies, numbers(2));
  EXPECT_EQ(await(), EvtRes_Success) << "nothing is posted";
}

TEST_F(Posted, RequestsThatDoNotFitAreSentWhenTheServerReads) {
  server->stopPumping();
  for (std::uint16_t i = 1; i < 100; ++i) {
    ASSERT_EQ(post(i, 4000), EvtRes_Success);
  }
  ASSERT_EQ(flush(), EvtRes_Success);
  client.loop.runUntilQuiet();
  EXPECT_EQ(client.loop.runFor(100ms), 0) << "waits for the pipe without turning";
  server->pump();
  ASSERT_TRUE(client.loop.runUntil([&] { return client.replies.size() == 99; }));
  EXPECT_EQ(client.replies, numbers(100));
}

TEST_F(Posted, RequestsWithoutARepliesTimeOutAndTheirLateRepliesCount) {
  server->stopPumping();
  ASSERT_EQ(post(1), EvtRes_Success);
  client.system.freezeTime();
  EXPECT_EQ(await(), EvtRes_Timeout);
  EXPECT_EQ(await(), EvtRes_Stalled);
  server->serveAll();
  EXPECT_EQ(client.request(), EvtRes_Timeout) << "its own reply";
  EXPECT_EQ(client.replies, numbers(2));
}

TEST_F(Posted, RequestsThatTimeOutGetTheirLateRepliesFromDispatches) {
  client.loop.runUntilQuiet();
  server->stopPumping();
  ASSERT_EQ(post(1), EvtRes_Success);
  client.system.freezeTime();
  EXPECT_EQ(await(), EvtRes_Timeout);
  EXPECT_EQ(client.loop.runUntilQuiet(), 0);
  server->pump();
  ASSERT_TRUE(client.loop.runUntil([&] { return client.replies.size() == 1; }));
}

TEST_F(Posted, RequestsThatTimeOutAreSentCompletelyByDispatches) {
  client.loop.runUntilQuiet();
  server->stopPumping();
  for (std::uint16_t i = 1; i < 100; ++i) {
    ASSERT_EQ(post(i, 4000), EvtRes_Success);
  }
  client.system.freezeTime();
  EXPECT_EQ(await(), EvtRes_Timeout);
  EXPECT_EQ(await(), EvtRes_Stalled);
  EXPECT_EQ(client.loop.runUntilQuiet(), 0) << "waits for the pipe without turning";
  server->pump();
  ASSERT_TRUE(client.loop.runUntil([&] { return client.replies.size() == 99; }));
  EXPECT_EQ(client.replies, numbers(100));
}

TEST_F(Posted, RequestsEndWithTheConnection) {
  server->stopPumping();
  ASSERT_EQ(post(1), EvtRes_Success);
  ASSERT_EQ(flush(), EvtRes_Success);
  server.reset();
  ASSERT_TRUE(client.loop.runUntil([&] { return client.losses == 1; }));
  EXPECT_EQ(post(2), EvtRes_Closed);
  EXPECT_EQ(client.replies, std::vector<std::uint16_t>());
}

}  // namespace
}  // namespace EvtSrv::internal
