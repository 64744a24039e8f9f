#include "model/sorted_positions.h"

#include <gmock/gmock.h>

namespace treescope {
namespace {

SortedPositions sorted(const std::vector<int>& items) {
  return SortedPositions(items.size(), [&](std::size_t left, std::size_t right) {
    return items[left] < items[right];
  });
}

TEST(SortedPositions, FindTheFirstOfEqualItems) {
  const std::vector<int> items{5, 3, 9, 3, 5};
  const SortedPositions positions = sorted(items);
  const auto find = [&](int wanted) {
    return positions.findFirst([&](std::size_t position) { return items[position] - wanted; });
  };
  EXPECT_EQ(find(3), 1U);
  EXPECT_EQ(find(5), 0U);
  EXPECT_EQ(find(9), 2U);
  EXPECT_EQ(find(4), std::nullopt);
  EXPECT_EQ(find(10), std::nullopt);
}

TEST(SortedPositions, FindNothingInAnEmptyList) {
  EXPECT_EQ(SortedPositions().findFirst([](std::size_t) { return 0; }), std::nullopt);
}

TEST(SortedPositions, CompareFewOf10000Items) {
  constexpr int many = 10000;
  std::vector<int> items;
  for (int item = 0; item < many; ++item) {
    items.push_back(item * 7919 % many);
  }
  const SortedPositions positions = sorted(items);
  long compared = 0;
  for (std::size_t wanted = 0; wanted < items.size(); ++wanted) {
    const auto found = positions.findFirst([&](std::size_t position) {
      ++compared;
      return items[position] - items[wanted];
    });
    ASSERT_EQ(found, wanted);
  }
  EXPECT_LT(compared, 20L * many);
}

}  // namespace
}  // namespace treescope
