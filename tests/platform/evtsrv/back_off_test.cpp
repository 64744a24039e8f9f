#include "evtsrv/source/back_off.h"

#include <gtest/gtest.h>

namespace EvtSrv::internal {
namespace {

TEST(BackOff, AllowsTheFirstAttemptAtOnce) {
  EXPECT_EQ(BackOff().remaining(7), 0);
}

TEST(BackOff, AllowsAnAttemptAtOnceAfterAConnectionThatLasted) {
  BackOff backOff;
  backOff.connected(1000);
  backOff.lost(2000);
  EXPECT_EQ(backOff.remaining(2000), 0);
}

TEST(BackOff, DoublesFromATenthOfASecondToFiveSeconds) {
  BackOff backOff;
  std::int64_t now = 50;
  for (const int delay : {100, 200, 400, 800, 1600, 3200, 5000, 5000}) {
    backOff.failed(now);
    EXPECT_EQ(backOff.remaining(now), delay);
    EXPECT_EQ(backOff.remaining(now + delay - 1), 1);
    now += delay;
    EXPECT_EQ(backOff.remaining(now), 0);
  }
}

TEST(BackOff, CountsAConnectionThatDidNotLastAsAFailedAttempt) {
  BackOff backOff;
  backOff.connected(1000);
  backOff.lost(1999);
  EXPECT_EQ(backOff.remaining(1999), 100);
  backOff.connected(2200);
  backOff.lost(2201);
  EXPECT_EQ(backOff.remaining(2201), 200);
  backOff.connected(2500);
  backOff.lost(3500);
  EXPECT_EQ(backOff.remaining(3500), 0);
  backOff.failed(3500);
  EXPECT_EQ(backOff.remaining(3500), 100);
}

}  // namespace
}  // namespace EvtSrv::internal
