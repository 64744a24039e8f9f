#include "shell/paths.h"

#include <gtest/gtest.h>

namespace treescope {
namespace {

using Components = std::vector<std::string>;

TEST(AppendComponent, PutsASlashBeforeTheComponent) {
  std::string text = "drive";
  appendComponent(text, "speed");
  appendComponent(text, "");
  EXPECT_EQ(text, "drive/speed/");
}

TEST(AppendPath, PutsASlashBeforeEachComponent) {
  std::string text = "set 1 ";
  appendPath(text, {});
  EXPECT_EQ(text, "set 1 ");
  appendPath(text, {"drive", "noname-12"});
  EXPECT_EQ(text, "set 1 /drive/noname-12");
}

TEST(PathText, IsASlashAloneForTheEmptyList) {
  EXPECT_EQ(pathText({}), "/");
  EXPECT_EQ(pathText({"a"}), "/a");
  EXPECT_EQ(pathText({"a", "b"}), "/a/b");
}

struct PathCase {
  const char* typed;
  Components base;
  const char* expected;
};

TEST(ResolvePath, AppliesTheTypedPathToTheBase) {
  const std::vector<PathCase> cases = {
      {"a//b", {"s"}, "/b"},    {"/x", {"s"}, "/x"},      {"a/../b", {"s"}, "/s/b"},
      {"../../x", {"s"}, "/x"}, {"a/", {"s"}, "/s/a"},    {"./a", {"s"}, "/s/./a"},
      {"/", {"s"}, ""},         {"", {"s", "t"}, "/s/t"}, {"", {}, ""},
      {"..", {"s", "t"}, "/s"}, {"...", {"s"}, "/s/..."}, {"a//", {"s"}, ""},
  };
  for (const PathCase& path : cases) {
    std::string text = path.typed;
    resolvePath(text, path.base);
    EXPECT_EQ(text, path.expected) << path.typed;
  }
}

TEST(ResolvePath, AcceptsPathsOfAnyDepth) {
  std::string text;
  for (int level = 0; level < 100'000; ++level) {
    text += "a/";
  }
  resolvePath(text, {});
  EXPECT_EQ(text.size(), 200'000U);
}

}  // namespace
}  // namespace treescope
