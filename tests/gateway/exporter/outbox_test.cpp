#include "gateway/exporter/outbox.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using modelgate::Outbox;
using modelgate::Publication;

struct OutboxTest : testing::Test {
  static Publication message(std::string topic, std::string payload = {}) {
    Publication publication;
    publication.topic = std::move(topic);
    publication.payload = std::move(payload);
    return publication;
  }

  bool isConnected = true;
  std::size_t capacity = 100;
  std::vector<std::string> sent;
  Outbox outbox{{.isConnected = [this] { return isConnected; },
                 .hasCapacity = [this] { return isConnected && capacity > 0; },
                 .publish =
                     [this](const Publication& publication) {
                       --capacity;
                       sent.push_back(publication.topic);
                     }}};
};

TEST_F(OutboxTest, SendsRepliesBeforeRetainedMessages) {
  capacity = 0;
  EXPECT_TRUE(outbox.pushRetained(&sent, [] { return message("page"); }));
  EXPECT_TRUE(
      outbox.pushRetained(&capacity, []() -> std::optional<Publication> { return std::nullopt; }));
  EXPECT_TRUE(outbox.pushReply(message("reply")));
  EXPECT_TRUE(sent.empty());
  capacity = 1;
  EXPECT_FALSE(outbox.pump());
  capacity = 5;
  EXPECT_TRUE(outbox.pump());
  EXPECT_EQ(sent, (std::vector<std::string>{"reply", "page"}));
}

TEST_F(OutboxTest, HoldsOneProducerOfASource) {
  capacity = 0;
  int pages = 3;
  const auto series = [&pages]() -> std::optional<Publication> {
    return pages == 0 ? std::nullopt : std::optional(message("page " + std::to_string(pages--)));
  };
  for (int i = 0; i < 1000; ++i) {
    EXPECT_TRUE(outbox.pushRetained(&sent, [] { return message("before"); }));
    EXPECT_TRUE(outbox.pushRetained(&pages, series, true));
  }
  EXPECT_TRUE(outbox.pushRetained(&sent, [] { return message("state"); }));
  capacity = 2;
  EXPECT_FALSE(outbox.pump());
  capacity = 100;
  EXPECT_TRUE(outbox.pump());
  EXPECT_EQ(sent, (std::vector<std::string>{"state", "page 3", "page 2", "page 1"}));
}

TEST_F(OutboxTest, IsBoundedWhileTheBrokerTakesNothing) {
  capacity = 0;
  std::size_t taken = 0;
  while (outbox.pushReply(message("reply", std::string(1024, 'x')))) {
    ++taken;
  }
  EXPECT_EQ(taken, Outbox::maxReplies);
  outbox.clear();
  taken = 0;
  while (outbox.pushReply(message("reply", std::string(std::size_t{1} << 20U, 'x')))) {
    ++taken;
  }
  EXPECT_EQ(taken, Outbox::maxBytes >> 20U);
}

TEST_F(OutboxTest, TakesNothingWithoutAConnection) {
  isConnected = false;
  EXPECT_FALSE(outbox.pushReply(message("reply")));
  EXPECT_FALSE(outbox.pushRetained(&sent, [] { return message("page"); }));
  isConnected = true;
  EXPECT_TRUE(outbox.pump());
  EXPECT_TRUE(sent.empty());
}

}  // namespace
