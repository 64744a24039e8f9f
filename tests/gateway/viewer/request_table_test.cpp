#include "gateway/viewer/request_table.h"

#include <gmock/gmock.h>

#include <vector>

namespace {

using modelgate::Reply;
using modelgate::RequestTable;
using std::chrono::seconds;
using Ending = RequestTable::Ending;
using testing::ElementsAre;

RequestTable::Time tableTime(int secondsPassed) {
  return RequestTable::Time() + seconds(100 + secondsPassed);
}

class Requests : public testing::Test {
 protected:
  std::string add(const std::string& topic = "t", int now = 0, int limit = 2) {
    return table.add("dev", topic, tableTime(now), seconds(limit),
                     [this](const RequestTable::Answer& answer) {
                       endings.push_back(answer.ending);
                       replies.push_back(answer.reply != nullptr ? answer.reply->sequence : 0);
                     });
  }
  static Reply reply(std::uint64_t sequence, bool more = false) {
    Reply result;
    result.sequence = sequence;
    result.more = more;
    return result;
  }

  RequestTable table{"me/"};
  std::vector<Ending> endings;
  std::vector<std::uint64_t> replies;
};

TEST_F(Requests, GetTheirReplyOnce) {
  const std::string first = add();
  const std::string second = add();
  EXPECT_NE(first, second);
  EXPECT_TRUE(table.take("dev", second, reply(7), tableTime(1)));
  EXPECT_FALSE(table.take("dev", second, reply(8), tableTime(1)));
  EXPECT_THAT(endings, ElementsAre(Ending::replied));
  EXPECT_THAT(replies, ElementsAre(7));
}

TEST_F(Requests, TakeNoReplyOfAnotherDeviceOrClient) {
  const std::string correlation = add();
  EXPECT_FALSE(table.take("other", correlation, reply(7), tableTime(1)));
  for (const std::string& wrong :
       {std::string(), std::string("me/"), std::string("me/x"), correlation + "x",
        "you/" + correlation.substr(3), std::string("me/99999999999999999999999"),
        correlation.substr(0, 3) + "-1", std::string("me/0")}) {
    EXPECT_FALSE(table.take("dev", wrong, reply(7), tableTime(1))) << wrong;
  }
  EXPECT_TRUE(endings.empty());
}

TEST_F(Requests, EndWhenTheirTimeHasPassed) {
  static_cast<void>(add("t", 0, 5));
  static_cast<void>(add("t", 0, 2));
  EXPECT_EQ(table.deadline(), tableTime(2));
  table.expire(tableTime(1));
  EXPECT_TRUE(endings.empty());
  table.expire(tableTime(2));
  EXPECT_THAT(endings, ElementsAre(Ending::timedOut));
  EXPECT_EQ(table.deadline(), tableTime(5));
}

TEST_F(Requests, WithMoreRepliesWaitForTheNext) {
  const std::string correlation = add();
  EXPECT_TRUE(table.take("dev", correlation, reply(1, true), tableTime(1)));
  EXPECT_EQ(table.deadline(), tableTime(3));
  EXPECT_TRUE(table.take("dev", correlation, reply(2), tableTime(2)));
  EXPECT_THAT(replies, ElementsAre(1, 2));
  EXPECT_FALSE(table.deadline());
}

TEST_F(Requests, OfARefusedTopicEndOldestFirst) {
  static_cast<void>(add("a"));
  const std::string b = add("b");
  const std::string later = add("b");
  table.refuse("b");
  EXPECT_THAT(endings, ElementsAre(Ending::refused));
  EXPECT_FALSE(table.take("dev", b, reply(1), tableTime(1)));
  EXPECT_TRUE(table.take("dev", later, reply(2), tableTime(1)));
  table.refuse("c");
  EXPECT_EQ(endings.size(), 2U);
}

TEST_F(Requests, EndWithTheConnectionButNotThoseOfTheNext) {
  int repeated = 0;
  static_cast<void>(
      table.add("dev", "t", tableTime(0), seconds(2), [&](const RequestTable::Answer& answer) {
        EXPECT_EQ(answer.ending, Ending::disconnected);
        ++repeated;
        static_cast<void>(add());
      }));
  table.disconnect();
  EXPECT_EQ(repeated, 1);
  EXPECT_TRUE(endings.empty());
  EXPECT_TRUE(table.deadline());
}

TEST_F(Requests, MayAllEndWithinAReply) {
  const std::string correlation =
      table.add("dev", "t", tableTime(0), seconds(2), [this](const RequestTable::Answer& answer) {
        if (answer.reply != nullptr) {
          table.disconnect();
        }
      });
  EXPECT_TRUE(table.take("dev", correlation, reply(1, true), tableTime(1)));
  EXPECT_FALSE(table.deadline());
}

}  // namespace
