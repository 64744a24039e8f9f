#include "gateway/exporter/reply_memory.h"

#include <gtest/gtest.h>

namespace {

using modelgate::ReplyMemory;
using State = ReplyMemory::State;

const ReplyMemory::Clock::time_point memoryStart{std::chrono::hours(1)};

TEST(ReplyMemory, RemembersRepliesForTenSeconds) {
  ReplyMemory memory;
  EXPECT_EQ(memory.begin("t", "1", memoryStart), State::isNew);
  EXPECT_EQ(memory.begin("t", "1", memoryStart), State::isInProgress);
  EXPECT_EQ(memory.begin("u", "1", memoryStart), State::isNew);
  memory.complete("t", "1", "reply", memoryStart);
  ASSERT_EQ(memory.begin("t", "1", memoryStart + std::chrono::seconds(9)), State::isAnswered);
  EXPECT_EQ(memory.reply("t", "1"), "reply");
  EXPECT_EQ(memory.begin("t", "1", memoryStart + std::chrono::seconds(10)), State::isNew);
}

TEST(ReplyMemory, KeepsWhatIsInProgress) {
  ReplyMemory memory;
  EXPECT_EQ(memory.begin("t", "1", memoryStart), State::isNew);
  EXPECT_EQ(memory.begin("t", "1", memoryStart + std::chrono::seconds(59)), State::isInProgress);
  memory.forget("t", "1");
  EXPECT_EQ(memory.begin("t", "1", memoryStart), State::isNew);
}

TEST(ReplyMemory, DoesNotWaitForeverForAReply) {
  ReplyMemory memory;
  EXPECT_EQ(memory.begin("t", "1", memoryStart), State::isNew);
  EXPECT_EQ(memory.begin("t", "1", memoryStart + ReplyMemory::longestProgress), State::isNew);
  EXPECT_EQ(memory.size(), 1U);
}

TEST(ReplyMemory, RemembersNothingWithoutCorrelationData) {
  ReplyMemory memory;
  EXPECT_EQ(memory.begin("t", "", memoryStart), State::isNew);
  memory.complete("t", "", "reply", memoryStart);
  EXPECT_EQ(memory.begin("t", "", memoryStart), State::isNew);
  EXPECT_EQ(memory.size(), 0U);
}

TEST(ReplyMemory, KnowsRequestsWhoseRepliesItHasDropped) {
  ReplyMemory memory;
  for (std::size_t i = 0; i <= ReplyMemory::maxReplies; ++i) {
    ASSERT_EQ(memory.begin("t", std::to_string(i), memoryStart), State::isNew);
    memory.complete("t", std::to_string(i), "r", memoryStart);
  }
  EXPECT_EQ(memory.begin("t", "1", memoryStart), State::isAnswered);
  EXPECT_EQ(memory.begin("t", "0", memoryStart + std::chrono::seconds(9)), State::isForgotten);
  EXPECT_EQ(memory.begin("t", "0", memoryStart + std::chrono::seconds(10)), State::isNew);
  EXPECT_EQ(memory.size(), 1U);
}

TEST(ReplyMemory, IsLimitedInBytes) {
  ReplyMemory memory;
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(memory.begin("t", std::to_string(i), memoryStart), State::isNew);
    memory.complete("t", std::to_string(i), std::string(ReplyMemory::maxBytes / 8, 'x'),
                    memoryStart);
  }
  EXPECT_EQ(memory.begin("t", "11", memoryStart), State::isForgotten);
  EXPECT_EQ(memory.begin("t", "12", memoryStart), State::isAnswered);
}

TEST(ReplyMemory, TakesNoMoreRequestsThanItCanRemember) {
  ReplyMemory memory;
  for (std::size_t i = 0; i < ReplyMemory::maxRequests; ++i) {
    ASSERT_EQ(memory.begin("t", std::to_string(i), memoryStart), State::isNew);
    if (i % 2 == 0) {
      memory.complete("t", std::to_string(i), "r", memoryStart);
    }
  }
  EXPECT_EQ(memory.begin("t", "another", memoryStart), State::isFull);
  EXPECT_EQ(memory.begin("t", "0", memoryStart), State::isForgotten);
  EXPECT_EQ(memory.begin("t", "another", memoryStart + ReplyMemory::duration), State::isNew);
}

}  // namespace
