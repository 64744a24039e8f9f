#include "gateway/link/back_off.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using modelgate::BackOff;
using namespace std::chrono_literals;

constexpr BackOff::Clock::time_point someTime{1h};

TEST(GatewayBackOff, GrowsFromATenthOfASecondToFiveSeconds) {
  BackOff backOff(1);
  BackOff::milliseconds most = 100ms;
  for (int attempt = 0; attempt < 10; ++attempt) {
    const auto delay = backOff.lost(someTime);
    EXPECT_GE(delay, std::max<BackOff::milliseconds>(most / 2, 100ms));
    EXPECT_LE(delay, most);
    most = std::min<BackOff::milliseconds>(most * 2, 5s);
  }
  EXPECT_EQ(most, 5s);
}

TEST(GatewayBackOff, BeginsAnewOnlyAfterAConnectionThatLasted) {
  BackOff backOff(1);
  for (int attempt = 0; attempt < 10; ++attempt) {
    static_cast<void>(backOff.lost(someTime));
  }
  backOff.connected(someTime);
  EXPECT_GE(backOff.lost(someTime + 4999ms), 2500ms);
  backOff.connected(someTime);
  EXPECT_EQ(backOff.lost(someTime + 5s), 100ms);
  EXPECT_LE(backOff.lost(someTime + 1h), 200ms);
}

TEST(GatewayBackOff, DiffersBetweenClients) {
  std::set<BackOff::milliseconds> delays;
  for (unsigned seed = 1; seed <= 20; ++seed) {
    BackOff backOff(seed);
    for (int attempt = 0; attempt < 6; ++attempt) {
      static_cast<void>(backOff.lost(someTime));
    }
    delays.insert(backOff.lost(someTime));
  }
  EXPECT_GT(delays.size(), 15U);
}

TEST(GatewayAnswerLimit, DoublesUntilTheBrokerAnswers) {
  modelgate::AnswerLimit limit;
  for (const auto expected : {10s, 20s, 40s, 80s, 80s}) {
    EXPECT_EQ(limit.limit(), expected);
    limit.missed();
  }
  limit.answered();
  EXPECT_EQ(limit.limit(), 10s);
}

}  // namespace
