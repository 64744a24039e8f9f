#include "model/subscription_list.h"

#include <gmock/gmock.h>

namespace treescope {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(SubscriptionList, KeepsTheOrderAndDuplicates) {
  SubscriptionList<> list;
  EXPECT_THAT(list.inOrder(), IsEmpty());
  for (const IdChain& chain : {IdChain{2}, IdChain{1, 5}, IdChain{2}, IdChain{}}) {
    list.add(chain);
  }
  EXPECT_THAT(list.inOrder(), ElementsAre(IdChain{2}, IdChain{1, 5}, IdChain{2}, IdChain{}));
}

TEST(SubscriptionList, RemovesTheFirstOfEqualEntries) {
  SubscriptionList<> list;
  for (const IdChain& chain : {IdChain{2}, IdChain{1}, IdChain{2}}) {
    list.add(chain);
  }
  list.removeFirst({2});
  EXPECT_THAT(list.inOrder(), ElementsAre(IdChain{1}, IdChain{2}));
  EXPECT_TRUE(list.contains({2}));
  list.removeFirst({2});
  EXPECT_FALSE(list.contains({2}));
  list.removeFirst({2});
  list.removeFirst({0});
  EXPECT_THAT(list.inOrder(), ElementsAre(IdChain{1}));
}

TEST(SubscriptionList, ComparesLengthAndIds) {
  SubscriptionList<> list;
  list.add({1, 2});
  EXPECT_TRUE(list.contains({1, 2}));
  for (const IdChain& chain : {IdChain{}, IdChain{1}, IdChain{1, 2, 3}, IdChain{2, 1}}) {
    EXPECT_FALSE(list.contains(chain));
  }
}

struct CountingLess {
  static inline long compared = 0;
  bool operator()(const IdChain& a, const IdChain& b) const {
    ++compared;
    return a < b;
  }
};

TEST(SubscriptionList, ComparesFewOfManyEntries) {
  constexpr std::uint16_t many = 10000;
  CountingLess::compared = 0;
  SubscriptionList<CountingLess> list;
  for (std::uint16_t id = 0; id < many; ++id) {
    list.add({1, id});
  }
  for (std::uint16_t id = 0; id < many; ++id) {
    ASSERT_TRUE(list.contains({1, id}));
  }
  for (std::uint16_t id = 0; id < many; ++id) {
    list.removeFirst({1, id});
  }
  EXPECT_THAT(list.inOrder(), IsEmpty());
  EXPECT_LT(CountingLess::compared, 100L * many);
}

}  // namespace
}  // namespace treescope
