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

const ChangePacer::Clock::time_point start{seconds(1000)};

/// Lives as the server does for `length`, and gives how many changes it made.
std::uint64_t live(std::uint32_t rate, ChangePacer::Clock::duration length) {
  ChangePacer churn(rate, start);
  std::uint64_t made = 0;
  for (auto now = start; now <= start + length; now += churn.wait(now)) {
    made += churn.take(now);
  }
  return made;
}

TEST(ChangePacer, ComesToItsRate) {
  EXPECT_EQ(live(1, seconds(10)), 10U);
  EXPECT_EQ(live(7, seconds(100)), 700U);
  EXPECT_EQ(live(1000, seconds(2)), 2000U);
  EXPECT_EQ(live(100000, seconds(1)), 100000U);
  EXPECT_EQ(live(1000000, seconds(1)), 1000000U);
}

TEST(ChangePacer, KeepsItsRateOverHours) {
  EXPECT_EQ(live(3, hours(5)), 5U * 3600 * 3);
}

TEST(ChangePacer, OwesNothingAtTheStart) {
  ChangePacer churn(1000000, start);
  EXPECT_EQ(churn.take(start), 0U);
  EXPECT_EQ(churn.take(start - seconds(1)), 0U);
}

TEST(ChangePacer, WaitsNoShorterThanAMillisecond) {
  EXPECT_EQ(ChangePacer(1000000, start).wait(start), milliseconds(1));
  EXPECT_EQ(ChangePacer(10, start).wait(start), milliseconds(100));
  EXPECT_EQ(ChangePacer(3, start).wait(start), milliseconds(334));
}

TEST(ChangePacer, DoesNotWaitWhereSomethingIsDue) {
  EXPECT_EQ(ChangePacer(10, start).wait(start + milliseconds(100)), milliseconds(0));
}

TEST(ChangePacer, BoundsTheBurstOfOneThatWasHeldUp) {
  ChangePacer churn(100000, start);
  EXPECT_EQ(churn.take(start + hours(3)), 5000U);
  EXPECT_EQ(churn.take(start + hours(3)), 0U);
  EXPECT_EQ(churn.take(start + hours(3) + milliseconds(1)), 100U);
}

TEST(ChangePacer, ASlowOneHeldUpStillMakesOneChange) {
  ChangePacer churn(1, start);
  EXPECT_EQ(churn.take(start + seconds(60)), 1U);
}

}  // namespace
}  // namespace modelsrvd
