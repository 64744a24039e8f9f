#include "model/child_list_cache.h"

#include <gmock/gmock.h>

namespace treescope {
namespace {

ChildList listOf(std::uint16_t id) {
  return ChildList({id}, {"n"});
}

TEST(ChildListCache, FindsTheBranchOfTheLastNode) {
  ChildListCache cache;
  EXPECT_EQ(cache.find({}), nullptr);
  cache.store({}, listOf(1));
  cache.store({1}, listOf(2));
  cache.store({1, 2}, listOf(3));
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

TEST(ChildListCache, DropsABranchThatIsLeft) {
  ChildListCache cache;
  cache.store({}, listOf(1));
  cache.store({1}, listOf(2));
  cache.store({1, 2}, listOf(3));
  cache.store({4}, listOf(5));
  EXPECT_NE(cache.find({}), nullptr);
  EXPECT_NE(cache.find({4}), nullptr);
  EXPECT_EQ(cache.find({1}), nullptr);
  EXPECT_EQ(cache.find({4, 2}), nullptr);
}

TEST(ChildListCache, StartsAtAnyNode) {
  ChildListCache cache;
  cache.store({7, 8}, listOf(1));
  EXPECT_NE(cache.find({7, 8}), nullptr);
  EXPECT_EQ(cache.find({7}), nullptr);
  EXPECT_EQ(cache.find({}), nullptr);
  cache.store({7, 8, 1}, listOf(2));
  EXPECT_NE(cache.find({7, 8}), nullptr);
  EXPECT_NE(cache.find({7, 8, 1}), nullptr);
  cache.store({3, 3, 3, 3, 3}, listOf(4));
  EXPECT_NE(cache.find({3, 3, 3, 3, 3}), nullptr);
  EXPECT_EQ(cache.find({7, 8}), nullptr);
  cache.store({}, listOf(5));
  EXPECT_NE(cache.find({}), nullptr);
  EXPECT_EQ(cache.find({3, 3, 3, 3, 3}), nullptr);
}

TEST(ChildListCache, BelongsToTheOutermostUse) {
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
