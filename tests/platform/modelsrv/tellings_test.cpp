#include "modelsrv/source/tellings.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "evtsrv/source/system.h"

namespace {

using ModelSrv::internal::Tellings;

constexpr std::uint64_t epochsOfAnEra = std::uint64_t{1} << EvtSrv::internal::eraShift;

class TellingsTest : public testing::Test {
 protected:
  void SetUp() override {
    tellings_.start();
    ASSERT_TRUE(tell() && view_.open(tellings_.begin()->place()));
  }

  /// Tells of something, which then keeps `mark_`; what was told holds from `epoch_` on.
  bool tell() {
    const EvtSrv::internal::LivePage* page = tellings_.begin();
    if (page == nullptr)
      return false;
    epoch_ = page->epoch();
    mark_ = Tellings::markOf(epoch_);
    return true;
  }

  [[nodiscard]] bool valueHolds() const { return view_.shows(epoch_); }
  [[nodiscard]] bool shapeHolds() const { return view_.showsEraOf(epoch_); }

  EvtSrv::internal::PosixSystem system_;
  Tellings tellings_{system_};
  EvtSrv::internal::LivePageView view_{system_};
  std::uint64_t epoch_ = 0;
  std::uint32_t mark_ = 0;
};

TEST_F(TellingsTest, OfTheShapeOutlastAChangeOfTheValue) {
  tellings_.takeBackValue(mark_);
  EXPECT_FALSE(valueHolds());
  EXPECT_TRUE(shapeHolds());
}

TEST_F(TellingsTest, OfTheShapeAreTakenBackAfterTheValueWas) {
  tellings_.takeBackValue(mark_);
  tellings_.takeBack(mark_);
  EXPECT_FALSE(shapeHolds());
}

TEST_F(TellingsTest, OfTheShapeAreTakenBackInALaterEpochOfTheEra) {
  const std::uint32_t early = mark_;
  tellings_.takeBackValue(mark_);
  ASSERT_TRUE(tell());
  tellings_.takeBack(early);
  EXPECT_FALSE(valueHolds());
  EXPECT_FALSE(shapeHolds());
}

TEST_F(TellingsTest, HoldOnWhereWhatChangesWasToldOfEarlier) {
  const std::uint32_t earlier = mark_;
  tellings_.takeBackAll();
  ASSERT_TRUE(tell());
  tellings_.takeBackValue(earlier);
  tellings_.takeBack(earlier);
  EXPECT_TRUE(valueHolds());
  EXPECT_TRUE(shapeHolds());
}

TEST_F(TellingsTest, AreTakenBackOnceOnly) {
  tellings_.takeBackValue(mark_);
  tellings_.takeBackValue(mark_);
  EXPECT_TRUE(view_.shows(epoch_ + 1));
  tellings_.takeBackAll();
  tellings_.takeBackAll();
  tellings_.takeBackValue(mark_);
  EXPECT_TRUE(view_.shows(epoch_ + 1 + epochsOfAnEra));
}

TEST_F(TellingsTest, AreTakenBackWhereTheEpochsRunIntoTheNextEra) {
  const std::uint64_t first = epoch_;
  while (view_.showsEraOf(first)) {
    ASSERT_LE(epoch_ - first, epochsOfAnEra);
    tellings_.takeBackValue(mark_);
    ASSERT_TRUE(tell());
  }
  EXPECT_GT(epoch_, first);
  EXPECT_TRUE(valueHolds());
  tellings_.takeBackValue(mark_);
  EXPECT_FALSE(valueHolds());
  EXPECT_TRUE(shapeHolds());
  tellings_.takeBack(mark_);
  EXPECT_FALSE(shapeHolds());
}

TEST(MarkOf, IsTheEpochsLowerBitsAndNever0) {
  EXPECT_EQ(Tellings::markOf(1), 1U);
  EXPECT_EQ(Tellings::markOf(0xFFFFFFFF), 0xFFFFFFFFU);
  EXPECT_EQ(Tellings::markOf(0x1'0000'0000), 1U);
  EXPECT_EQ(Tellings::markOf(0x1'0000'0001), 1U);
}

}  // namespace
