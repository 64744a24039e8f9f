#include "gateway/exporter/leases.h"

#include <gtest/gtest.h>

#include "tests/gateway/exporter/trees.h"

namespace {

using modelgate::Leases;
using modelgate::PositionRange;
using Ranges = std::vector<PositionRange>;

const Leases::Clock::time_point leaseStart{std::chrono::hours(1)};

TEST(Leases, LastSixtySecondsUnlessTheyAreRenewed) {
  const modelgate::TreeIndex index(gateway_test::sampleShape());
  Leases leases;
  EXPECT_FALSE(leases.deadline());
  ASSERT_TRUE(leases.renew("a", {}, leaseStart));
  EXPECT_EQ(leases.deadline(), leaseStart + std::chrono::seconds(60));
  ASSERT_TRUE(leases.renew("a", {}, leaseStart + std::chrono::seconds(30)));
  EXPECT_FALSE(leases.expire(leaseStart + std::chrono::seconds(60)));
  EXPECT_EQ(leases.ranges(index), (Ranges{{0, 9}}));
  EXPECT_TRUE(leases.expire(leaseStart + std::chrono::seconds(90)));
  EXPECT_TRUE(leases.isEmpty());
  EXPECT_EQ(leases.ranges(index), Ranges{});
}

TEST(Leases, CoverSubtreesOnce) {
  const modelgate::TreeIndex index(gateway_test::sampleShape());
  Leases leases;
  ASSERT_TRUE(leases.renew("a", {1, 9}, leaseStart));
  ASSERT_TRUE(leases.renew("a", {2}, leaseStart));
  ASSERT_TRUE(leases.renew("b", {2}, leaseStart));
  ASSERT_TRUE(leases.renew("b", {77}, leaseStart));
  EXPECT_EQ(leases.ranges(index), (Ranges{{3, 6}}));
  ASSERT_TRUE(leases.renew("b", {4}, leaseStart));
  EXPECT_EQ(leases.ranges(index), (Ranges{{3, 6}, {7, 8}}));
  ASSERT_TRUE(leases.renew("b", {1}, leaseStart));
  EXPECT_EQ(leases.ranges(index), (Ranges{{0, 6}, {7, 8}}));
}

TEST(Leases, AreLimitedInNumber) {
  Leases leases;
  for (std::size_t i = 0; i < Leases::maxLeases; ++i) {
    ASSERT_TRUE(leases.renew(std::to_string(i), {}, leaseStart));
  }
  EXPECT_FALSE(leases.renew("x", {}, leaseStart));
  EXPECT_TRUE(leases.renew("7", {}, leaseStart));
}

}  // namespace
