#include "model/child_list_cache.h"

#include <gmock/gmock.h>

namespace treescope {
namespace {

ChildList only(std::uint16_t id) {
  return ChildList({id}, {"n"});
}

TEST(ChildListCache, KnowTheWayToTheLastNode) {
  ChildListCache remembered;
  EXPECT_EQ(remembered.find({}), nullptr);
  remembered.remember({}, only(1));
  remembered.remember({1}, only(2));
  remembered.remember({1, 2}, only(3));
  ASSERT_NE(remembered.find({}), nullptr);
  EXPECT_EQ(remembered.find({})->id(0), 1);
  ASSERT_NE(remembered.find({1}), nullptr);
  EXPECT_EQ(remembered.find({1})->id(0), 2);
  ASSERT_NE(remembered.find({1, 2}), nullptr);
  EXPECT_EQ(remembered.find({1, 2})->id(0), 3);
  EXPECT_EQ(remembered.find({2}), nullptr);
  EXPECT_EQ(remembered.find({1, 3}), nullptr);
  EXPECT_EQ(remembered.find({1, 2, 3}), nullptr);
}

TEST(ChildListCache, ForgetABranchThatIsLeft) {
  ChildListCache remembered;
  remembered.remember({}, only(1));
  remembered.remember({1}, only(2));
  remembered.remember({1, 2}, only(3));
  remembered.remember({4}, only(5));
  EXPECT_NE(remembered.find({}), nullptr);
  EXPECT_NE(remembered.find({4}), nullptr);
  EXPECT_EQ(remembered.find({1}), nullptr);
  EXPECT_EQ(remembered.find({4, 2}), nullptr);
}

TEST(ChildListCache, BeginAnywhere) {
  ChildListCache remembered;
  remembered.remember({7, 8}, only(1));
  EXPECT_NE(remembered.find({7, 8}), nullptr);
  EXPECT_EQ(remembered.find({7}), nullptr);
  EXPECT_EQ(remembered.find({}), nullptr);
  remembered.remember({7, 8, 1}, only(2));
  EXPECT_NE(remembered.find({7, 8}), nullptr);
  EXPECT_NE(remembered.find({7, 8, 1}), nullptr);
  remembered.remember({3, 3, 3, 3, 3}, only(4));
  EXPECT_NE(remembered.find({3, 3, 3, 3, 3}), nullptr);
  EXPECT_EQ(remembered.find({7, 8}), nullptr);
  remembered.remember({}, only(5));
  EXPECT_NE(remembered.find({}), nullptr);
  EXPECT_EQ(remembered.find({3, 3, 3, 3, 3}), nullptr);
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
