#include "gateway/viewer/remote_clock.h"

#include <gmock/gmock.h>

namespace {

using modelgate::RemoteClock;
using std::chrono::milliseconds;

RemoteClock::Time after(int passed) {
  return RemoteClock::Time() + std::chrono::hours(1) + milliseconds(passed);
}

TEST(RemoteClock, KnowsNothingBeforeTheFirstMessage) {
  RemoteClock clock;
  EXPECT_FALSE(clock.at(after(0)));
  clock.heard(5'000, after(0));
  clock.reset();
  EXPECT_FALSE(clock.at(after(0)));
}

TEST(RemoteClock, GoesOnFromTheLastMessage) {
  RemoteClock clock;
  clock.heard(5'000, after(0));
  EXPECT_EQ(clock.at(after(0)), 5'000U);
  EXPECT_EQ(clock.at(after(700)), 5'700U);
}

TEST(RemoteClock, IsNotSetBackByAMessageThatWasDelayed) {
  RemoteClock clock;
  clock.heard(5'000, after(0));
  clock.heard(5'100, after(1'100));
  EXPECT_EQ(clock.at(after(1'100)), 6'100U);
}

TEST(RemoteClock, IsSetForwardByAFasterMessage) {
  RemoteClock clock;
  clock.heard(5'000, after(0));
  clock.heard(5'200, after(100));
  EXPECT_EQ(clock.at(after(100)), 5'200U);
}

TEST(RemoteClock, FollowsAClockThatHasStopped) {
  RemoteClock clock;
  clock.heard(5'000, after(0));
  clock.heard(6'000, after(11'000));
  EXPECT_EQ(clock.at(after(11'000)), 6'000U);
}

TEST(RemoteClock, MayBeAheadOfThisMachinesOwn) {
  RemoteClock clock;
  const std::uint64_t large = (std::uint64_t{1} << 53) - 1;
  clock.heard(large, after(0));
  EXPECT_EQ(clock.at(after(1)), large + 1);
}

}  // namespace
