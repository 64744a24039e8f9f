#include <thread>

#include "tests/fault/raw_server_test.h"

// A client of a server that violates the protocol.

namespace fault {
namespace {

using ModelSrv::ModelRes;
using ModelSrv::ModelRes_NotConnected;
using ModelSrv::ModelRes_Protocol;
using ModelSrv::ModelRes_Success;

class BadServer : public RawServerTest {
 protected:
  /// Requests the counter. The server replies with the frame `bytes`, into which it puts
  /// the request's sequence number, and closes the reply pipe.
  Reply getCounter(Client& client, std::string bytes) {
    std::thread serving([&] {
      const auto request = server_.readRequest();
      ASSERT_TRUE(request);
      EXPECT_EQ(request->kind, wire::request);
      EXPECT_EQ(request->code, wire::save);
      EXPECT_EQ(request->payload, wire::chain({counterId}, request->order) +
                                      wire::u16(wire::wholeValue, request->order));
      const auto order = static_cast<wire::Order>(bytes[0]);
      bytes.replace(4, 4, wire::u32(request->sequence, order));
      EXPECT_TRUE(server_.replies.write(bytes));
      server_.replies.close();
    });
    Reply result = client.get(client.counter);
    serving.join();
    return result;
  }
};

TEST_F(BadServer, ReplyIsAccepted) {
  Client client(false);
  connect(client);
  EXPECT_EQ(getCounter(client, wire::frame(wire::reply, 0, 0, "123")).text, "123");
}

TEST_F(BadServer, ReplyInTheOtherByteOrderIsAccepted) {
  Client client(false);
  connect(client);
  const auto frame = wire::frame(wire::reply, 0, 0, "123", std::nullopt, wire::Order::mostFirst);
  EXPECT_EQ(getCounter(client, frame).text, "123");
}

TEST_F(BadServer, LateReplyToAnotherRequestIsDropped) {
  Client client(false);
  connect(client);
  std::thread serving([&] {
    const auto request = server_.readRequest();
    ASSERT_TRUE(request);
    const std::uint32_t sequence = request->sequence;
    EXPECT_TRUE(server_.replies.write(wire::frame(wire::reply, 0, sequence - 1, "late") +
                                      wire::frame(wire::reply, 0, sequence, "right")));
  });
  EXPECT_EQ(client.get(client.counter).text, "right");
  serving.join();
}

struct BadReply {
  const char* name;
  std::string bytes;
  ModelRes result;
};

/// How the test list shows a row.
void PrintTo(const BadReply& row, std::ostream* out) {
  *out << row.name;
}

std::vector<BadReply> badReplies() {
  std::string wrongOrder = wire::frame(wire::reply, 0, 0, "1");
  wrongOrder[0] = 7;
  return {
      {"ByteOrderThatDoesNotExist", wrongOrder, ModelRes_Protocol},
      {"KindThatDoesNotExist", wire::frame(77, 0, 0, "1"), ModelRes_Protocol},
      {"RequestFromAServer", wire::frame(wire::request, 0, 0, "1"), ModelRes_Protocol},
      {"EventOnTheReplyPipe", wire::frame(wire::event, 1, 0, {}), ModelRes_Protocol},
      {"SecondWelcome", wire::frame(wire::welcome, 0, 0, {}), ModelRes_Protocol},
      {"LengthOneAboveTheLimit", wire::frame(wire::reply, 0, 0, {}, wire::maxPayload + 1),
       ModelRes_Protocol},
      {"LengthOfFourGigabytes", wire::frame(wire::reply, 0, 0, "1", 0xFFFFFFFF), ModelRes_Protocol},
      {"Text", "HTTP/1.1 200 OK\r\n\r\n", ModelRes_Protocol},
      {"CutInTheHeader", wire::frame(wire::reply, 0, 0, "1").substr(0, 11), ModelRes_NotConnected},
      {"CutInThePayload", wire::frame(wire::reply, 0, 0, "1", 100), ModelRes_NotConnected},
  };
}

class BadReplies : public BadServer, public testing::WithParamInterface<BadReply> {};

TEST_P(BadReplies, FailsTheRequestImmediatelyAndEveryLaterOneWithTheSameError) {
  Client client(false);
  connect(client);
  const Reply reply = getCounter(client, GetParam().bytes);
  EXPECT_EQ(reply.result, GetParam().result);
  EXPECT_LT(reply.elapsed, immediateLimit);
  EXPECT_EQ(client.get(client.counter).result, GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(Garbage, BadReplies, testing::ValuesIn(badReplies()),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(BadServer, ListWithAWrongCountIsAProtocolError) {
  Client client(false);
  connect(client);
  for (const std::string& payload :
       {wire::u16(65535), wire::u16(2) + wire::u16(1), std::string(1, '\1'), wire::u16(0) + "x"}) {
    std::thread serving([&] {
      const auto request = server_.readRequest();
      ASSERT_TRUE(request);
      EXPECT_TRUE(server_.replies.write(wire::frame(wire::reply, 0, request->sequence, payload)));
    });
    std::vector<unsigned short> ids{1, 2, 3};
    EXPECT_EQ(client.root.getChildIdsFromServer(&client.root, ids), ModelRes_Protocol);
    EXPECT_EQ(ids, (std::vector<unsigned short>{1, 2, 3}));
    serving.join();
  }
}

TEST_F(BadServer, GarbageOnTheEventPipeEndsTheConnection) {
  Client client(false);
  connect(client);
  ASSERT_TRUE(server_.events.write("these bytes are not an event"));
  EXPECT_EQ(client.manager.receiveEvent(2000), EvtSrv::EvtRes_Success);
  const Reply reply = client.get(client.counter);
  EXPECT_EQ(reply.result, ModelRes_Protocol);
  EXPECT_LT(reply.elapsed, immediateLimit);
}

TEST_F(BadServer, InvalidWelcomeFailsTheConnection) {
  Client client(false);
  EXPECT_EQ(connect(client, std::string(wire::headerSize, '\xFF')).result, ModelRes_Protocol);
  EXPECT_EQ(connect(client, wire::frame(wire::reply, 0, 0, {})).result, ModelRes_Protocol);
  EXPECT_TRUE(namedPrivatePipes(::getpid()).empty());
}

TEST_F(BadServer, WelcomeWithARefusalFailsTheConnection) {
  Client client(false);
  EXPECT_EQ(connect(client, wire::frame(wire::welcome, EvtSrv::EvtRes_Refused, 0, {})).result,
            ModelSrv::ModelRes_Refused);
  EXPECT_TRUE(namedPrivatePipes(::getpid()).empty());
}

}  // namespace
}  // namespace fault
