#include "servers/change_pacer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>

namespace modelsrvd {
namespace {

using std::chrono::hours;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

const ChangePacer::Clock::time_point pacerStart{seconds(1000)};

/// Calls the pacer as the server does for `length` and returns the number of changes.
std::uint64_t changesDuring(std::uint32_t rate, ChangePacer::Clock::duration length) {
  ChangePacer pacer(rate, pacerStart);
  std::uint64_t made = 0;
  for (auto now = pacerStart; now <= pacerStart + length; now += pacer.wait(now)) {
    made += pacer.take(now);
  }
  return made;
}

TEST(ChangePacer, KeepsItsRate) {
  EXPECT_EQ(changesDuring(1, seconds(10)), 10U);
  EXPECT_EQ(changesDuring(7, seconds(100)), 700U);
  EXPECT_EQ(changesDuring(1000, seconds(2)), 2000U);
  EXPECT_EQ(changesDuring(100000, seconds(1)), 100000U);
  EXPECT_EQ(changesDuring(1000000, seconds(1)), 1000000U);
}

TEST(ChangePacer, KeepsItsRateOverHours) {
  EXPECT_EQ(changesDuring(3, hours(5)), 5U * 3600 * 3);
}

TEST(ChangePacer, MakesNoChangeAtTheStart) {
  ChangePacer pacer(1000000, pacerStart);
  EXPECT_EQ(pacer.take(pacerStart), 0U);
  EXPECT_EQ(pacer.take(pacerStart - seconds(1)), 0U);
}

TEST(ChangePacer, WaitsAtLeastAMillisecond) {
  EXPECT_EQ(ChangePacer(1000000, pacerStart).wait(pacerStart), milliseconds(1));
  EXPECT_EQ(ChangePacer(10, pacerStart).wait(pacerStart), milliseconds(100));
  EXPECT_EQ(ChangePacer(3, pacerStart).wait(pacerStart), milliseconds(334));
}

TEST(ChangePacer, DoesNotWaitWhenAChangeIsDue) {
  EXPECT_EQ(ChangePacer(10, pacerStart).wait(pacerStart + milliseconds(100)), milliseconds(0));
}

TEST(ChangePacer, BoundsTheBurstAfterADelay) {
  ChangePacer pacer(100000, pacerStart);
  EXPECT_EQ(pacer.take(pacerStart + hours(3)), 5000U);
  EXPECT_EQ(pacer.take(pacerStart + hours(3)), 0U);
  EXPECT_EQ(pacer.take(pacerStart + hours(3) + milliseconds(1)), 100U);
}

TEST(ChangePacer, MakesOneChangeAfterADelayAtALowRate) {
  ChangePacer pacer(1, pacerStart);
  EXPECT_EQ(pacer.take(pacerStart + seconds(60)), 1U);
}

}  // namespace
}  // namespace modelsrvd
