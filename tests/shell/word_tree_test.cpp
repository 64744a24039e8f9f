#include "shell/word_tree.h"

#include <gtest/gtest.h>

#include "tests/shell/recording_shell.h"

namespace treescope {
namespace {

using Paths = std::vector<std::string>;

struct PatternCase {
  std::string pattern;
  Paths matches;
};

TEST(ExpandWildcard, FindsThePathsThatThePatternMatchesWhole) {
  RecordingShell shell;
  for (const char* name : {"x", "a.b", "axb", "ba", "a"}) {
    shell.words().add(name);
  }
  shell.words().children[0]->add("one");
  shell.words().children[0]->add("two").add("deep");
  shell.words().children[4]->add("one");
  const std::vector<PatternCase> cases = {
      {"*", {"x", "a.b", "axb", "ba", "a"}},
      {"a*", {"a.b", "axb", "a"}},
      {"a.b", {"a.b", "axb"}},
      {"x/*", {"x/one", "x/two"}},
      {"*/one", {"x/one", "a/one"}},
      {"x/*/*", {"x/two/deep"}},
      {"/x", {}},
      {"", {}},
      {"a[", {}},
      {"\\(", {}},
      {"[ab]*", {"a.b", "axb", "ba", "a"}},
      {"b", {}},
      {std::string(5000, '*'), {}},
      {"ax\\{1,2\\}b", {"axb"}},
      {"\\(a\\{255\\}\\)\\{0,255\\}\\{50\\}x*", {}},
      {"\\(\\(x*\\{255\\}\\)\\{255\\}\\)\\{99999999999999999999\\}", {}},
  };
  for (const PatternCase& given : cases) {
    Paths matches = {"stale"};
    shell.expandWildcard(given.pattern.c_str(), matches);
    EXPECT_EQ(matches, given.matches) << given.pattern;
  }
}

TEST(WordTree, FreesATreeOfAnyDepth) {
  WordNode root;
  WordNode* node = &root;
  for (int level = 0; level < 200'000; ++level) {
    node = &node->add("n");
  }
  EXPECT_EQ(root.children.size(), 1U);
}

TEST(WordTree, FindsThePathAndAddsMissingNodes) {
  WordNode root;
  root.add("a").add("b");
  root.add("a").add("c");
  EXPECT_EQ(&root.at({}), &root);
  EXPECT_EQ(&root.at({"a", "b"}), root.children[0]->children[0].get());
  EXPECT_EQ(root.at({"a", "c", "d"}).name, "d");
  EXPECT_EQ(matchingPaths(root, "*/*/*"), (Paths{"a/c/d"}));
  EXPECT_EQ(matchingPaths(root, "*"), (Paths{"a", "a"}));
}

TEST(WordTree, KeepsTheDescendantsOfRemainingChildren) {
  WordNode root;
  root.setChildren({"a", "b", "a", "c"});
  EXPECT_EQ(matchingPaths(root, "*"), (Paths{"a", "b", "c"}));
  root.at({"a"}).setChildren({"x"});
  root.at({"b"}).setChildren({"y"});
  root.setChildren({"d", "b", "b"});
  EXPECT_EQ(matchingPaths(root, "*"), (Paths{"d", "b"}));
  EXPECT_EQ(matchingPaths(root, "*/*"), (Paths{"b/y"}));
  root.setChildren({});
  EXPECT_TRUE(root.children.empty());
}

}  // namespace
}  // namespace treescope
