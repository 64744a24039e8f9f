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

TEST(ExpandWildcard, FollowsItsTable) {
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

}  // namespace
}  // namespace treescope
