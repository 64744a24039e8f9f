#include "tests/fault/other_client_test.h"
#include "tests/fault/raw_pipe.h"

namespace fault {
namespace {

using ModelSrv::ModelRes_Success;

std::string getCounter(std::uint32_t sequence = 1, wire::Order order = wire::Order::leastFirst) {
  return wire::frame(wire::request, wire::save, sequence,
                     wire::chain({counterId}, order) + wire::u16(wire::wholeValue, order),
                     std::nullopt, order);
}

struct BadFrame {
  const char* name;
  std::string bytes;
};

/// How the test list shows a row.
void PrintTo(const BadFrame& row, std::ostream* out) {
  *out << row.name;
}

std::vector<BadFrame> badFrames() {
  std::string wrongOrder = getCounter();
  wrongOrder[0] = 2;
  const std::string chain = wire::chain({counterId}) + wire::u16(wire::wholeValue);
  return {
      {"ByteOrderThatDoesNotExist", wrongOrder},
      {"KindZero", wire::frame(0, wire::save, 1, chain)},
      {"KindThatDoesNotExist", wire::frame(5, wire::save, 1, chain)},
      {"LargestKind", wire::frame(255, wire::save, 1, chain)},
      {"ReplyFromAClient", wire::frame(wire::reply, wire::save, 1, chain)},
      {"EventFromAClient", wire::frame(wire::event, wire::save, 1, chain)},
      {"WelcomeFromAClient", wire::frame(wire::welcome, 0, 1, {})},
      {"LengthOneAboveTheLimit",
       wire::frame(wire::request, wire::save, 1, {}, wire::maxPayload + 1)},
      {"LengthOfFourGigabytes", wire::frame(wire::request, wire::save, 1, chain, 0xFFFFFFFF)},
      {"LengthInTheOtherOrder", wire::frame(wire::request, wire::save, 1, chain, 0x06000000)},
      {"Text", "GET / HTTP/1.1\r\nHost: example\r\n\r\n"},
      {"AllOnes", std::string(4096, '\xFF')},
      {"GarbageAfterAValidRequest", getCounter() + std::string(64, '\xA5')},
  };
}

class BadFrames : public OtherClientTest, public testing::WithParamInterface<BadFrame> {};

TEST_P(BadFrames, ClosesOnlyThatConnection) {
  RawClient client;
  ASSERT_TRUE(client.connect(mailbox));
  ASSERT_TRUE(client.requests.write(GetParam().bytes));
  EXPECT_TRUE(client.events.ended());
  expectOtherUnaffected();
}

INSTANTIATE_TEST_SUITE_P(Garbage, BadFrames, testing::ValuesIn(badFrames()),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(BadFrames, FrameThatIsCutAtAnyByteClosesOnlyThatConnection) {
  const std::string whole = getCounter();
  for (std::size_t cut = 1; cut < whole.size(); ++cut) {
    RawClient client;
    ASSERT_TRUE(client.connect(mailbox));
    ASSERT_TRUE(client.requests.write(whole.substr(0, cut)));
    client.requests.close();
    EXPECT_TRUE(client.replies.ended()) << "cut at " << cut;
  }
  expectOtherUnaffected();
}

TEST_F(BadFrames, FrameThatArrivesByteByByteGetsAReply) {
  RawClient client;
  ASSERT_TRUE(client.connect(mailbox));
  for (const char byte : getCounter(7)) {
    ASSERT_TRUE(client.requests.write(std::string(1, byte)));
    // An exchange of the other client makes the server read between two bytes.
    ASSERT_EQ(otherClient_.get(otherClient_.counter).result, ModelRes_Success);
  }
  const auto reply = client.replies.readFrame();
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->kind, wire::reply);
  EXPECT_EQ(reply->sequence, 7U);
  EXPECT_EQ(reply->code, ModelRes_Success);
  EXPECT_EQ(reply->payload, "0");
}

TEST_F(BadFrames, RequestsInOneWriteGetTheirRepliesInOrder) {
  RawClient client;
  ASSERT_TRUE(client.connect(mailbox));
  std::string all;
  for (std::uint32_t sequence = 1; sequence <= 500; ++sequence) {
    all += getCounter(sequence);
  }
  ASSERT_TRUE(client.requests.write(all));
  for (std::uint32_t sequence = 1; sequence <= 500; ++sequence) {
    const auto reply = client.replies.readFrame();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->sequence, sequence);
  }
}

TEST_F(BadFrames, RequestInTheOtherByteOrderGetsAReply) {
  RawClient client;
  ASSERT_TRUE(client.sendHello(mailbox, {}, wire::Order::mostFirst));
  ASSERT_TRUE(client.awaitWelcome());
  ASSERT_TRUE(client.requests.write(getCounter(0x01020304, wire::Order::mostFirst)));
  const auto reply = client.replies.readFrame();
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->sequence, 0x01020304U);
  EXPECT_EQ(reply->code, ModelRes_Success);
  EXPECT_EQ(reply->payload, "0");
}

TEST_F(BadFrames, LargestFrameIsAccepted) {
  RawClient client;
  ASSERT_TRUE(client.connect(mailbox));
  const auto reply = client.exchange(wire::childIds, std::string(wire::maxPayload, '\0'));
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->code, ModelSrv::ModelRes_BadRequest);
}

}  // namespace
}  // namespace fault
