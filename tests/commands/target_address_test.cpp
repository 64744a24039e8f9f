#include "commands/target_address.h"

#include <gmock/gmock.h>

namespace treescope {
namespace {

struct SplitCase {
  const char* path;
  SplitPath split;
};

TEST(SplitAtLastSlash, KeepsTheRootAsAParent) {
  const SplitCase cases[] = {
      {"", {"", ""}},          {"a", {"", "a"}},      {"/", {"/", ""}},      {"/a", {"/", "a"}},
      {"a/", {"a", ""}},       {"a/b", {"a", "b"}},   {"/a/b", {"/a", "b"}}, {"//a", {"/", "a"}},
      {"/a/b/", {"/a/b", ""}}, {"a//b", {"a/", "b"}}, {"../x", {"..", "x"}},
  };
  for (const SplitCase& test : cases) {
    EXPECT_EQ(splitAtLastSlash(test.path), test.split) << test.path;
  }
}

struct SuffixCase {
  const char* component;
  const char* rest;
  const char* index;
};

TEST(TakeElementSuffix, RequiresTextBetweenTheFirstBrackets) {
  const SuffixCase cases[] = {
      {"a[3]", "a", "3"},     {"[3]", "", "3"},         {"a[3]b", "ab", "3"},
      {"a[]", "a[]", ""},     {"a[", "a[", ""},         {"a[3", "a[3", ""},
      {"a]", "a]", ""},       {"]a[", "]a[", ""},       {"]a[3]", "]a[3]", ""},
      {"a[x y]", "a", "x y"}, {"a[1][2]", "a[2]", "1"}, {"a[[1]", "a", "[1"},
      {"", "", ""},           {"[]3]", "[]3]", ""},
  };
  for (const SuffixCase& test : cases) {
    std::string component = test.component;
    EXPECT_EQ(takeElementSuffix(component), test.index) << test.component;
    EXPECT_EQ(component, test.rest) << test.component;
  }
}

TEST(FindChild, AppendsTheChildWithItsDisplayedName) {
  const ResolvedParent parent{{{1}, {"drive"}}, ChildList({4, 12}, {"speed", ""})};
  EXPECT_EQ(findChild(parent, "speed"), (NamedChain{{1, 4}, {"drive", "speed"}}));
  EXPECT_EQ(findChild(parent, "noname-12"), (NamedChain{{1, 12}, {"drive", "noname-12"}}));
  EXPECT_EQ(findChild(parent, "noname-4"), std::nullopt);
  EXPECT_EQ(findChild(parent, ""), std::nullopt);
}

TEST(ResolvedParent, IsANodeOnlyWithChildren) {
  EXPECT_TRUE((ResolvedParent{{}, ChildList({4}, {""})}).isNode());
  EXPECT_FALSE(ResolvedParent{}.isNode());
}

}  // namespace
}  // namespace treescope
