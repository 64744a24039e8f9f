#include <fcntl.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "tests/fault/fault_test.h"
#include "tests/fault/raw_pipe.h"

namespace fault {
namespace {

using ModelSrv::ModelRes_Success;

constexpr std::size_t large = 16U * 1024 * 1024;

class FullPipe : public FaultTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(server_.execute("serve " + port), success());
    ASSERT_EQ(otherClient_.connect(port).result, ModelRes_Success);
  }

  void expectOthersAreServed() {
    const Reply reply = otherClient_.get(otherClient_.counter);
    EXPECT_EQ(reply.result, ModelRes_Success);
    EXPECT_LT(reply.elapsed, immediateLimit);
  }

  Peer server_;
  Client otherClient_;
};

/// Whether one of this process's request pipes is full.
bool isARequestPipeFull() {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    const std::string target = std::filesystem::read_symlink(entry.path(), error).string();
    if (target.find(".req") == std::string::npos) {
      continue;
    }
    const int descriptor = std::stoi(entry.path().filename().string());
    int pending = 0;
    if (::ioctl(descriptor, FIONREAD, &pending) == 0 &&
        pending == ::fcntl(descriptor, F_GETPIPE_SZ)) {
      return true;
    }
  }
  return false;
}

TEST_F(FullPipe, StoreOf16MiBToASlowServerFillsTheRequestPipeAndArrives) {
  const std::string value = patternText(large);
  server_.suspend();
  std::thread storing(
      [&] { EXPECT_EQ(otherClient_.store(otherClient_.text, value).result, ModelRes_Success); });
  EXPECT_TRUE(eventually(isARequestPipeFull));
  server_.resume();
  storing.join();
  const Reply reply = otherClient_.get(otherClient_.text);
  EXPECT_EQ(reply.result, ModelRes_Success);
  EXPECT_TRUE(reply.text == value);
}

TEST_F(FullPipe, StoreThatArrivesInPiecesDelaysNoOtherClient) {
  const std::string value = patternText(1'000'000);
  RawClient client;
  ASSERT_TRUE(client.connect(mailbox));
  const std::string request = wire::frame(
      wire::request, wire::load, 1,
      wire::chain({textId}) + wire::u16(wire::wholeValue) + std::string(1, '\0') + value);
  constexpr std::size_t piece = 33'333;
  for (std::size_t at = 0; at < request.size(); at += piece) {
    expectOthersAreServed();
    ASSERT_TRUE(client.requests.write(request.substr(at, piece)));
  }
  const auto reply = client.replies.readFrame();
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->code, ModelRes_Success);
  EXPECT_TRUE(otherClient_.get(otherClient_.text).text == value);
}

TEST_F(FullPipe, ClientThatReadsSlowlyGetsAReplyOf16MiB) {
  ASSERT_EQ(server_.execute("settext " + std::to_string(large)), success());
  RawClient client;
  ASSERT_TRUE(client.connect(mailbox));
  ASSERT_TRUE(client.requests.write(wire::frame(
      wire::request, wire::save, 9, wire::chain({textId}) + wire::u16(wire::wholeValue))));
  const std::string header = client.replies.read(wire::headerSize);
  ASSERT_EQ(header.size(), wire::headerSize);
  EXPECT_EQ(wire::parseHeader(header).length, large);
  std::string value;
  for (int small = 0; small < 200; ++small) {
    value += client.replies.read(777);
    expectOthersAreServed();
  }
  value += client.replies.read(large - value.size());
  EXPECT_TRUE(value == patternText(large));
  const auto next =
      client.exchange(wire::save, wire::chain({counterId}) + wire::u16(wire::wholeValue));
  ASSERT_TRUE(next);
  EXPECT_EQ(next->payload, "0");
}

TEST_F(FullPipe, RequestsWaitUntilTheReplyBeforeThemIsRead) {
  ASSERT_EQ(server_.execute("settext 1000000"), success());
  RawClient client;
  ASSERT_TRUE(client.connect(mailbox));
  const std::string payload = wire::chain({textId}) + wire::u16(wire::wholeValue);
  constexpr std::uint32_t count = 20;
  for (std::uint32_t sequence = 1; sequence <= count; ++sequence) {
    ASSERT_TRUE(client.requests.write(wire::frame(wire::request, wire::save, sequence, payload)));
  }
  // One reply is being written; the other 19 requests have not been read.
  expectOthersAreServed();
  for (std::uint32_t sequence = 1; sequence <= count; ++sequence) {
    const auto reply = client.replies.readFrame();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->sequence, sequence);
    EXPECT_EQ(reply->payload.size(), 1'000'000U);
  }
}

class FullEventPipe : public FullPipe {
 protected:
  void SetUp() override {
    FullPipe::SetUp();
    slowClient_.addProxies();
    ASSERT_EQ(slowClient_.connect(port).result, ModelRes_Success);
    for (const auto& part : slowClient_.parts) {
      part->readsInUpdate = true;
      ASSERT_EQ(slowClient_.subscribe(*part), ModelRes_Success);
    }
  }

  [[nodiscard]] bool slowClientHasTheLastValues(unsigned changes) const {
    return std::all_of(slowClient_.parts.begin(), slowClient_.parts.end(), [&](const auto& part) {
      return part->lastValue() == std::to_string(lastOfMany(part->id(), changes));
    });
  }

  [[nodiscard]] unsigned updatesOfSlowClient() const {
    unsigned sum = 0;
    for (const auto& part : slowClient_.parts) {
      sum += part->updates();
    }
    return sum;
  }

  Client slowClient_;
};

constexpr unsigned changes = 100'000;
/// An update's frame: header, two ids, the end of the chain, the index.
constexpr unsigned updateSize = wire::headerSize + 8;
/// The capacity of the pipe and of the pending chunk, and one pending update for each
/// part.
constexpr unsigned maxUpdates = (65'536 + 65'536) / updateSize + manyParts;

TEST_F(FullEventPipe, ServerServesOthersAndTheLastValuesAreSeenLater) {
  ASSERT_EQ(server_.execute("change " + std::to_string(changes)), "ok");
  expectOthersAreServed();
  ASSERT_EQ(server_.execute("change " + std::to_string(changes)), "ok");
  EXPECT_TRUE(slowClient_.pumpUntil([&] { return slowClientHasTheLastValues(changes); }));
  EXPECT_LE(updatesOfSlowClient(), maxUpdates);
}

TEST_F(FullEventPipe, MemoryOfTheServerIsBounded) {
  // The first round fills all buffers.
  ASSERT_EQ(server_.execute("change " + std::to_string(changes)), "ok");
  const std::size_t before = residentKiB(server_.pid());
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(server_.execute("change " + std::to_string(changes)), "ok");
  }
  if (!test_support::sanitized) {
    EXPECT_LT(residentKiB(server_.pid()), before + 1024);
  }
  EXPECT_TRUE(slowClient_.pumpUntil([&] { return slowClientHasTheLastValues(changes); }));
  EXPECT_LE(updatesOfSlowClient(), maxUpdates);
}

TEST_F(FullEventPipe, RequestsOfTheSameClientGetReplies) {
  ASSERT_EQ(server_.execute("change " + std::to_string(changes)), "ok");
  const Reply reply = slowClient_.get(*slowClient_.parts[7]);
  EXPECT_EQ(reply.text, std::to_string(lastOfMany(7, changes)));
  EXPECT_LT(reply.elapsed, immediateLimit);
}

TEST_F(FullPipe, ServerExitsWhileAClientReadsNoEvents) {
  Client slowClient;
  slowClient.addProxies();
  ASSERT_EQ(slowClient.connect(port).result, ModelRes_Success);
  for (const auto& part : slowClient.parts) {
    ASSERT_EQ(slowClient.subscribe(*part), ModelRes_Success);
  }
  ASSERT_EQ(server_.execute("change " + std::to_string(changes)), "ok");
  server_.quit();
}

}  // namespace
}  // namespace fault
