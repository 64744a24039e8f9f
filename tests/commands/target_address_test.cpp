#include "commands/target_address.h"

#include <gmock/gmock.h>

namespace treescope {
namespace {

struct SuffixCase {
  const char* component;
  const char* rest;
  const char* index;
};

TEST(TakeElementSuffix, WantsSomethingBetweenTheFirstBrackets) {
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

TEST(FindChild, AppendsTheChildAsItIsShown) {
  const ParentPlace place{{{1}, {"drive"}}, ChildList({4, 12}, {"speed", ""})};
  EXPECT_EQ(findChild(place, "speed"), (NamedChain{{1, 4}, {"drive", "speed"}}));
  EXPECT_EQ(findChild(place, "noname-12"), (NamedChain{{1, 12}, {"drive", "noname-12"}}));
  EXPECT_EQ(findChild(place, "noname-4"), std::nullopt);
  EXPECT_EQ(findChild(place, ""), std::nullopt);
}

TEST(ParentPlace, IsANodeOnlyWithChildren) {
  EXPECT_TRUE((ParentPlace{{}, ChildList({4}, {""})}).isNode());
  EXPECT_FALSE(ParentPlace{}.isNode());
}

}  // namespace
}  // namespace treescope
