#include "modelsrv/source/cache/cache_invalidator.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "evtsrv/source/system.h"

namespace {

using ModelSrv::internal::CacheInvalidator;
using ModelSrv::internal::StatusPage;
using ModelSrv::internal::StatusPageReader;

constexpr std::uint64_t epochsPerStructure = std::uint64_t{1} << ModelSrv::internal::structureShift;

class CacheInvalidation : public testing::Test {
 protected:
  void SetUp() override {
    invalidator_.open();
    ASSERT_TRUE(cache() && reader_.open(invalidator_.beginPrefetch()->handle()));
  }

  /// Begins a prefetch. The part in it has `stamp_`; the client's cache is valid from `epoch_` on.
  bool cache() {
    const StatusPage* page = invalidator_.beginPrefetch();
    if (page == nullptr) {
      return false;
    }
    epoch_ = page->epoch();
    stamp_ = CacheInvalidator::stampOf(epoch_);
    return true;
  }

  [[nodiscard]] bool isValueCurrent() const { return reader_.isCurrent(epoch_); }
  [[nodiscard]] bool isStructureCurrent() const { return reader_.isStructureCurrent(epoch_); }

  EvtSrv::internal::PosixSystem system_;
  CacheInvalidator invalidator_{system_};
  StatusPageReader reader_{system_};
  std::uint64_t epoch_ = 0;
  std::uint32_t stamp_ = 0;
};

TEST_F(CacheInvalidation, KeepsTheStructureValidWhenAValueChanges) {
  invalidator_.invalidateValue(stamp_);
  EXPECT_FALSE(isValueCurrent());
  EXPECT_TRUE(isStructureCurrent());
}

TEST_F(CacheInvalidation, InvalidatesTheStructureAfterTheValue) {
  invalidator_.invalidateValue(stamp_);
  invalidator_.invalidate(stamp_);
  EXPECT_FALSE(isStructureCurrent());
}

TEST_F(CacheInvalidation, InvalidatesTheStructureOfAPartThatWasCachedInAnEarlierEpoch) {
  const std::uint32_t early = stamp_;
  invalidator_.invalidateValue(stamp_);
  ASSERT_TRUE(cache());
  invalidator_.invalidate(early);
  EXPECT_FALSE(isValueCurrent());
  EXPECT_FALSE(isStructureCurrent());
}

TEST_F(CacheInvalidation, IgnoresAChangeOfAPartThatWasCachedInAnEarlierStructureVersion) {
  const std::uint32_t earlier = stamp_;
  invalidator_.invalidateAll();
  ASSERT_TRUE(cache());
  invalidator_.invalidateValue(earlier);
  invalidator_.invalidate(earlier);
  EXPECT_TRUE(isValueCurrent());
  EXPECT_TRUE(isStructureCurrent());
}

TEST_F(CacheInvalidation, AdvancesThePageOnceForEachPrefetch) {
  invalidator_.invalidateValue(stamp_);
  invalidator_.invalidateValue(stamp_);
  EXPECT_TRUE(reader_.isCurrent(epoch_ + 1));
  invalidator_.invalidateAll();
  invalidator_.invalidateAll();
  invalidator_.invalidateValue(stamp_);
  EXPECT_TRUE(reader_.isCurrent(epoch_ + 1 + epochsPerStructure));
}

TEST_F(CacheInvalidation, InvalidatesAfterTheEpochHasRunIntoTheNextStructureVersion) {
  const std::uint64_t first = epoch_;
  while (reader_.isStructureCurrent(first)) {
    ASSERT_LE(epoch_ - first, epochsPerStructure);
    invalidator_.invalidateValue(stamp_);
    ASSERT_TRUE(cache());
  }
  EXPECT_GT(epoch_, first);
  EXPECT_TRUE(isValueCurrent());
  invalidator_.invalidateValue(stamp_);
  EXPECT_FALSE(isValueCurrent());
  EXPECT_TRUE(isStructureCurrent());
  invalidator_.invalidate(stamp_);
  EXPECT_FALSE(isStructureCurrent());
}

TEST(StampOf, IsTheLowerBitsOfTheEpochAndNever0) {
  EXPECT_EQ(CacheInvalidator::stampOf(1), 1U);
  EXPECT_EQ(CacheInvalidator::stampOf(0xFFFFFFFF), 0xFFFFFFFFU);
  EXPECT_EQ(CacheInvalidator::stampOf(0x1'0000'0000), 1U);
  EXPECT_EQ(CacheInvalidator::stampOf(0x1'0000'0001), 1U);
}

}  // namespace
