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

class FullPipeTest : public FaultTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(server_.ask("serve " + port), success());
    ASSERT_EQ(bystander_.connect(port).result, ModelRes_Success);
  }

  void expectOthersAreServed() {
    const Answer answer = bystander_.get(bystander_.counter);
    EXPECT_EQ(answer.result, ModelRes_Success);
    EXPECT_LT(answer.elapsed, atOnce);
  }

  Peer server_;
  Client bystander_;
};

/// Whether one of this process's private request pipes is as full as can be.
bool aRequestPipeIsFull() {
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

TEST_F(FullPipeTest, RequestsPipeFullStoreOf16MiBToASlowServerArrives) {
  const std::string value = patternText(large);
  server_.suspend();
  std::thread storing(
      [&] { EXPECT_EQ(bystander_.store(bystander_.text, value).result, ModelRes_Success); });
  EXPECT_TRUE(eventually(aRequestPipeIsFull));
  server_.resume();
  storing.join();
  const Answer answer = bystander_.get(bystander_.text);
  EXPECT_EQ(answer.result, ModelRes_Success);
  EXPECT_TRUE(answer.text == value);
}

TEST_F(FullPipeTest, StoreThatComesInPiecesKeepsNobodyWaiting) {
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
  const auto answer = client.replies.readFrame();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->code, ModelRes_Success);
  EXPECT_TRUE(bystander_.get(bystander_.text).text == value);
}

TEST_F(FullPipeTest, RepliesPipeFullClientThatReadsSlowlyGets16MiB) {
  ASSERT_EQ(server_.ask("settext " + std::to_string(large)), success());
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
  const auto next = client.ask(wire::save, wire::chain({counterId}) + wire::u16(wire::wholeValue));
  ASSERT_TRUE(next);
  EXPECT_EQ(next->payload, "0");
}

TEST_F(FullPipeTest, RequestsBehindAReplyThatIsNotTakenWait) {
  ASSERT_EQ(server_.ask("settext 1000000"), success());
  RawClient client;
  ASSERT_TRUE(client.connect(mailbox));
  const std::string payload = wire::chain({textId}) + wire::u16(wire::wholeValue);
  constexpr std::uint32_t count = 20;
  for (std::uint32_t sequence = 1; sequence <= count; ++sequence) {
    ASSERT_TRUE(client.requests.write(wire::frame(wire::request, wire::save, sequence, payload)));
  }
  // One reply under way, not twenty: 19 requests are still where they were.
  expectOthersAreServed();
  for (std::uint32_t sequence = 1; sequence <= count; ++sequence) {
    const auto answer = client.replies.readFrame();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->sequence, sequence);
    EXPECT_EQ(answer->payload.size(), 1'000'000U);
  }
}

class FullEventPipeTest : public FullPipeTest {
 protected:
  void SetUp() override {
    FullPipeTest::SetUp();
    sleeper_.mirrorMany();
    ASSERT_EQ(sleeper_.connect(port).result, ModelRes_Success);
    for (const auto& part : sleeper_.parts) {
      part->asksInUpdate = true;
      ASSERT_EQ(sleeper_.subscribe(*part), ModelRes_Success);
    }
  }

  [[nodiscard]] bool sleeperSawTheLastValues(unsigned changes) const {
    return std::all_of(sleeper_.parts.begin(), sleeper_.parts.end(), [&](const auto& part) {
      return part->seen() == std::to_string(lastOfMany(part->id(), changes));
    });
  }

  [[nodiscard]] unsigned updatesOfSleeper() const {
    unsigned sum = 0;
    for (const auto& part : sleeper_.parts) {
      sum += part->updates();
    }
    return sum;
  }

  Client sleeper_;
};

constexpr unsigned changes = 100'000;
/// An update's frame: header, two ids, the end of the chain, the index.
constexpr unsigned updateSize = wire::headerSize + 8;
/// What the pipe and the chunk that waits for room hold, and one pending entry a
/// part.
constexpr unsigned updatesAtMost = (65'536 + 65'536) / updateSize + manyParts;

TEST_F(FullEventPipeTest, EventsPipeFullServerServesOthersAndLastValuesAreSeenLater) {
  ASSERT_EQ(server_.ask("change " + std::to_string(changes)), "ok");
  expectOthersAreServed();
  ASSERT_EQ(server_.ask("change " + std::to_string(changes)), "ok");
  EXPECT_TRUE(sleeper_.pumpUntil([&] { return sleeperSawTheLastValues(changes); }));
  EXPECT_LE(updatesOfSleeper(), updatesAtMost);
}

TEST_F(FullEventPipeTest, EventsPipeFullServersMemoryIsBounded) {
  // The first round fills what there is to fill.
  ASSERT_EQ(server_.ask("change " + std::to_string(changes)), "ok");
  const std::size_t before = residentKiB(server_.pid());
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(server_.ask("change " + std::to_string(changes)), "ok");
  }
  if (memoryIsReused()) {
    EXPECT_LT(residentKiB(server_.pid()), before + 1024);
  }
  EXPECT_TRUE(sleeper_.pumpUntil([&] { return sleeperSawTheLastValues(changes); }));
  EXPECT_LE(updatesOfSleeper(), updatesAtMost);
}

TEST_F(FullEventPipeTest, EventsPipeFullItsOwnClientsRequestsAreAnswered) {
  ASSERT_EQ(server_.ask("change " + std::to_string(changes)), "ok");
  const Answer answer = sleeper_.get(*sleeper_.parts[7]);
  EXPECT_EQ(answer.text, std::to_string(lastOfMany(7, changes)));
  EXPECT_LT(answer.elapsed, atOnce);
}

TEST_F(FullPipeTest, ServerEndsWhileAClientTakesNoEvents) {
  Client sleeper;
  sleeper.mirrorMany();
  ASSERT_EQ(sleeper.connect(port).result, ModelRes_Success);
  for (const auto& part : sleeper.parts) {
    ASSERT_EQ(sleeper.subscribe(*part), ModelRes_Success);
  }
  ASSERT_EQ(server_.ask("change " + std::to_string(changes)), "ok");
  server_.quit();
}

}  // namespace
}  // namespace fault
