#include "model/child_list_cache.h"

#include <gmock/gmock.h>

namespace treescope {
namespace {

ChildList only(std::uint16_t id) {
  return ChildList({id}, {"n"});
}

TEST(ChildListCache, KnowTheWayToTheLastNode) {
  ChildListCache cache;
  EXPECT_EQ(cache.find({}), nullptr);
  cache.store({}, only(1));
  cache.store({1}, only(2));
  cache.store({1, 2}, only(3));
  ASSERT_NE(cache.find({}), nullptr);
  EXPECT_EQ(cache.find({})->id(0), 1);
  ASSERT_NE(cache.find({1}), nullptr);
  EXPECT_EQ(cache.find({1})->id(0), 2);
  ASSERT_NE(cache.find({1, 2}), nullptr);
  EXPECT_EQ(cache.find({1, 2})->id(0), 3);
  EXPECT_EQ(cache.find({2}), nullptr);
  EXPECT_EQ(cache.find({1, 3}), nullptr);
  EXPECT_EQ(cache.find({1, 2, 3}), nullptr);
}

TEST(ChildListCache, ForgetABranchThatIsLeft) {
  ChildListCache cache;
  cache.store({}, only(1));
  cache.store({1}, only(2));
  cache.store({1, 2}, only(3));
  cache.store({4}, only(5));
  EXPECT_NE(cache.find({}), nullptr);
  EXPECT_NE(cache.find({4}), nullptr);
  EXPECT_EQ(cache.find({1}), nullptr);
  EXPECT_EQ(cache.find({4, 2}), nullptr);
}

TEST(ChildListCache, BeginAnywhere) {
  ChildListCache cache;
  cache.store({7, 8}, only(1));
  EXPECT_NE(cache.find({7, 8}), nullptr);
  EXPECT_EQ(cache.find({7}), nullptr);
  EXPECT_EQ(cache.find({}), nullptr);
  cache.store({7, 8, 1}, only(2));
  EXPECT_NE(cache.find({7, 8}), nullptr);
  EXPECT_NE(cache.find({7, 8, 1}), nullptr);
  cache.store({3, 3, 3, 3, 3}, only(4));
  EXPECT_NE(cache.find({3, 3, 3, 3, 3}), nullptr);
  EXPECT_EQ(cache.find({7, 8}), nullptr);
  cache.store({}, only(5));
  EXPECT_NE(cache.find({}), nullptr);
  EXPECT_EQ(cache.find({3, 3, 3, 3, 3}), nullptr);
}

TEST(ChildListCache, AreUsedByTheOutermostUser) {
  ChildListCache* slot = nullptr;
  {
    const ChildListCache::Use outer(slot);
    ChildListCache* const installed = slot;
    ASSERT_NE(installed, nullptr);
    {
      const ChildListCache::Use inner(slot);
      EXPECT_EQ(slot, installed);
    }
    EXPECT_EQ(slot, installed);
  }
  EXPECT_EQ(slot, nullptr);
}

}  // namespace
}  // namespace treescope
