#include "term/completion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace treescope {
namespace {

TEST(CommonBeginning, IsTheLongestThatAllShare) {
  struct Case {
    std::vector<std::string> candidates;
    std::string common;
  };
  const std::vector<Case> cases = {
      {{}, ""},
      {{"abc"}, "abc"},
      {{"alpha", "alpine"}, "alp"},
      {{"alpine", "alpha"}, "alp"},
      {{"cat ", "cd "}, "c"},
      {{"abc", "ab", "abcd"}, "ab"},
      {{"ab", "ab"}, "ab"},
      {{"abc", "xbc"}, ""},
      {{"abc", "", "abc"}, ""},
      {{"", "abc"}, ""},
      {{"alpha", "beta", "alpine"}, ""},
      {{"xalpha", "alpha"}, ""},
      {{"a\xc3\xa9", "a\xc3\xa8"}, "a\xc3"},
      {{"\xff/", "\xff\x1b[1m"}, "\xff"},
  };
  for (const Case& each : cases) {
    EXPECT_EQ(commonBeginning(each.candidates), each.common)
        << testing::PrintToString(each.candidates);
  }
}

TEST(CommonBeginning, IsFoundAmongManyLongCandidates) {
  const std::string shared(100'000, 'x');
  std::vector<std::string> candidates(200, shared + "y");
  candidates.push_back(shared + "z");
  EXPECT_EQ(commonBeginning(candidates), shared);
}

}  // namespace
}  // namespace treescope
