#include "modelsrv/source/cache/cache_invalidator.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "evtsrv/source/system.h"

namespace {

using ModelSrv::internal::CacheInvalidator;
using ModelSrv::internal::StatusPage;
using ModelSrv::internal::StatusPageReader;

constexpr std::uint64_t epochsPerStructure = std::uint64_t{1} << ModelSrv::internal::structureShift;

class CacheInvalidatorTest : public testing::Test {
 protected:
  void SetUp() override {
    invalidator_.open();
    ASSERT_TRUE(tell() && view_.open(invalidator_.beginPrefetch()->handle()));
  }

  /// Tells of something, which then keeps `stamp_`; what was told holds from `epoch_` on.
  bool tell() {
    const StatusPage* page = invalidator_.beginPrefetch();
    if (page == nullptr) {
      return false;
    }
    epoch_ = page->epoch();
    stamp_ = CacheInvalidator::stampOf(epoch_);
    return true;
  }

  [[nodiscard]] bool valueHolds() const { return view_.isCurrent(epoch_); }
  [[nodiscard]] bool structureHolds() const { return view_.isStructureCurrent(epoch_); }

  EvtSrv::internal::PosixSystem system_;
  CacheInvalidator invalidator_{system_};
  StatusPageReader view_{system_};
  std::uint64_t epoch_ = 0;
  std::uint32_t stamp_ = 0;
};

TEST_F(CacheInvalidatorTest, OfTheShapeOutlastAChangeOfTheValue) {
  invalidator_.invalidateValue(stamp_);
  EXPECT_FALSE(valueHolds());
  EXPECT_TRUE(structureHolds());
}

TEST_F(CacheInvalidatorTest, OfTheShapeAreTakenBackAfterTheValueWas) {
  invalidator_.invalidateValue(stamp_);
  invalidator_.invalidate(stamp_);
  EXPECT_FALSE(structureHolds());
}

TEST_F(CacheInvalidatorTest, OfTheShapeAreTakenBackInALaterEpochOfTheEra) {
  const std::uint32_t early = stamp_;
  invalidator_.invalidateValue(stamp_);
  ASSERT_TRUE(tell());
  invalidator_.invalidate(early);
  EXPECT_FALSE(valueHolds());
  EXPECT_FALSE(structureHolds());
}

TEST_F(CacheInvalidatorTest, HoldOnWhereWhatChangesWasToldOfEarlier) {
  const std::uint32_t earlier = stamp_;
  invalidator_.invalidateAll();
  ASSERT_TRUE(tell());
  invalidator_.invalidateValue(earlier);
  invalidator_.invalidate(earlier);
  EXPECT_TRUE(valueHolds());
  EXPECT_TRUE(structureHolds());
}

TEST_F(CacheInvalidatorTest, AreTakenBackOnceOnly) {
  invalidator_.invalidateValue(stamp_);
  invalidator_.invalidateValue(stamp_);
  EXPECT_TRUE(view_.isCurrent(epoch_ + 1));
  invalidator_.invalidateAll();
  invalidator_.invalidateAll();
  invalidator_.invalidateValue(stamp_);
  EXPECT_TRUE(view_.isCurrent(epoch_ + 1 + epochsPerStructure));
}

TEST_F(CacheInvalidatorTest, AreTakenBackWhereTheEpochsRunIntoTheNextEra) {
  const std::uint64_t first = epoch_;
  while (view_.isStructureCurrent(first)) {
    ASSERT_LE(epoch_ - first, epochsPerStructure);
    invalidator_.invalidateValue(stamp_);
    ASSERT_TRUE(tell());
  }
  EXPECT_GT(epoch_, first);
  EXPECT_TRUE(valueHolds());
  invalidator_.invalidateValue(stamp_);
  EXPECT_FALSE(valueHolds());
  EXPECT_TRUE(structureHolds());
  invalidator_.invalidate(stamp_);
  EXPECT_FALSE(structureHolds());
}

TEST(MarkOf, IsTheEpochsLowerBitsAndNever0) {
  EXPECT_EQ(CacheInvalidator::stampOf(1), 1U);
  EXPECT_EQ(CacheInvalidator::stampOf(0xFFFFFFFF), 0xFFFFFFFFU);
  EXPECT_EQ(CacheInvalidator::stampOf(0x1'0000'0000), 1U);
  EXPECT_EQ(CacheInvalidator::stampOf(0x1'0000'0001), 1U);
}

}  // namespace
