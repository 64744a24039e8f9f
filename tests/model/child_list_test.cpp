#include "model/child_list.h"

#include <gmock/gmock.h>

namespace treescope {
namespace {

ChildList children(ChildSearch search = ChildSearch::rare) {
  return ChildList({4, 3, 12, 9, 5}, {"speed", "", "gain", "speed", "noname-4"}, search);
}

constexpr ChildSearch bothSearches[] = {ChildSearch::rare, ChildSearch::frequent};

struct SearchCase {
  std::string text;
  std::optional<std::size_t> position;
};

TEST(FindName, FindsTheFirstChildThatIsDisplayedAsTheName) {
  const SearchCase cases[] = {
      {"speed", 0},      {"gain", 2},   {"noname-3", 1}, {"noname-4", 4}, {"noname-12", {}},
      {"noname-03", {}}, {"Speed", {}}, {"spee", {}},    {"speed ", {}},  {"", {}},
  };
  for (const SearchCase& test : cases) {
    for (const ChildSearch search : bothSearches) {
      EXPECT_EQ(children(search).findName(test.text), test.position) << test.text;
    }
  }
}

TEST(FindComponent, ReadsTheTextAfterNonameAsAnId) {
  const SearchCase cases[] = {
      {"speed", 0},
      {"gain", 2},
      {"noname-3", 1},
      {"noname-003", 1},
      {"noname-3x", 1},
      {"noname-12", 2},
      {"noname-4", 0},
      {"noname-", {}},
      {"noname-x", {}},
      {"noname-1", {}},
      {"noname--3", {}},
      {"noname-65539", {}},
      {"noname-99999999999999999999", {}},
      {"noname", {}},
      {"Gain", {}},
  };
  for (const SearchCase& test : cases) {
    for (const ChildSearch search : bothSearches) {
      EXPECT_EQ(children(search).findComponent(test.text), test.position) << test.text;
    }
  }
}

TEST(ChildList, HasADisplayedNameForEveryChild) {
  EXPECT_EQ(children().name(1), "noname-3");
  EXPECT_EQ(children().servedName(1), "");
  EXPECT_EQ(children().name(3), "speed");
}

TEST(ChildList, TreatsAMissingNameAsEmpty) {
  const ChildList list({1, 2}, {"a"});
  EXPECT_EQ(list.size(), 2U);
  EXPECT_EQ(list.name(1), "noname-2");
}

TEST(ChildList, DropsNamesWithoutAnId) {
  const ChildList list({1}, {"a", "b"});
  EXPECT_EQ(list.size(), 1U);
  EXPECT_EQ(list.findName("b"), std::nullopt);
  EXPECT_EQ(list.findComponent("b"), std::nullopt);
}

TEST(ChildList, ComparesNamesOfAnyBytes) {
  const std::string odd("\xff\0\n[", 4);
  for (const ChildSearch search : bothSearches) {
    const ChildList list({8, 9}, {odd, odd + 'x'}, search);
    EXPECT_EQ(list.findName(odd), 0U);
    EXPECT_EQ(list.findComponent(odd), 0U);
    EXPECT_EQ(list.findName(odd.substr(0, 1)), std::nullopt);
  }
}

TEST(ChildList, FindsIds) {
  for (const ChildSearch search : bothSearches) {
    EXPECT_EQ(children(search).findId(9), 3U);
    EXPECT_EQ(children(search).findId(1), std::nullopt);
    EXPECT_EQ(ChildList({7, 2, 7}, {}, search).findId(7), 0U) << "the first of equal ones";
  }
}

}  // namespace
}  // namespace treescope
