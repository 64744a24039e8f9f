#include "gateway/viewer/gap_tracker.h"

#include <gmock/gmock.h>

#include <random>
#include <set>

namespace {

using modelgate::GapTracker;

TEST(GapTracker, FollowsBatchesInOrder) {
  GapTracker tracker;
  tracker.synced(7);
  EXPECT_FALSE(tracker.take(7, 8));
  EXPECT_FALSE(tracker.take(8, 9));
  EXPECT_EQ(tracker.complete(), 9U);
  EXPECT_FALSE(tracker.hasGap());
}

TEST(GapTracker, ReportsAGapOnceAndEndsItWithASync) {
  GapTracker tracker;
  tracker.synced(7);
  EXPECT_TRUE(tracker.take(8, 9));
  EXPECT_FALSE(tracker.take(9, 10)) << "the same gap";
  EXPECT_EQ(tracker.complete(), 7U);
  EXPECT_TRUE(tracker.hasGap());
  tracker.synced(9);
  EXPECT_FALSE(tracker.hasGap());
  EXPECT_EQ(tracker.complete(), 10U) << "the batch after the sync was there already";
}

TEST(GapTracker, KeepsAGapThatASyncDoesNotReach) {
  GapTracker tracker;
  tracker.synced(7);
  EXPECT_TRUE(tracker.take(20, 21));
  tracker.synced(10);
  EXPECT_TRUE(tracker.hasGap());
  EXPECT_EQ(tracker.complete(), 10U);
  tracker.synced(20);
  EXPECT_FALSE(tracker.hasGap());
  EXPECT_EQ(tracker.complete(), 21U);
}

TEST(GapTracker, TakesASecondGapInsteadOfTheFirst) {
  GapTracker tracker;
  tracker.synced(1);
  EXPECT_TRUE(tracker.take(3, 4));
  EXPECT_TRUE(tracker.take(6, 7));
  tracker.synced(5);
  EXPECT_TRUE(tracker.hasGap()) << "6 is missing";
  tracker.synced(6);
  EXPECT_FALSE(tracker.hasGap());
  EXPECT_EQ(tracker.complete(), 7U);
}

TEST(GapTracker, IgnoresWhatIsOld) {
  GapTracker tracker;
  tracker.synced(9);
  EXPECT_FALSE(tracker.take(3, 4));
  tracker.synced(2);
  EXPECT_EQ(tracker.complete(), 9U);
  EXPECT_FALSE(tracker.take(9, 9)) << "a heartbeat";
}

TEST(GapTracker, BeginsAnew) {
  GapTracker tracker;
  tracker.synced(9);
  EXPECT_TRUE(tracker.take(12, 13));
  tracker.reset();
  EXPECT_FALSE(tracker.hasGap());
  EXPECT_EQ(tracker.complete(), 0U);
}

TEST(GapTracker, NeverClaimsWhatWasLost) {
  std::mt19937 random(5);
  for (int round = 0; round < 100; ++round) {
    GapTracker tracker;
    std::set<std::uint64_t> seen;
    for (std::uint64_t sequence = 1; sequence <= 40; ++sequence) {
      if (random() % 4 != 0) {
        static_cast<void>(tracker.take(sequence - 1, sequence));
        seen.insert(sequence);
      }
      if (random() % 8 == 0) {
        const std::uint64_t synced = sequence - std::min<std::uint64_t>(sequence, random() % 3);
        tracker.synced(synced);
        for (std::uint64_t i = 1; i <= synced; ++i) {
          seen.insert(i);
        }
      }
      for (std::uint64_t i = 1; i <= tracker.complete(); ++i) {
        ASSERT_EQ(seen.count(i), 1U) << i;
      }
      // Whatever was seen last is complete, or a gap is known.
      if (!seen.empty()) {
        ASSERT_TRUE(tracker.hasGap() || tracker.complete() == *seen.rbegin());
      }
    }
  }
}

}  // namespace
