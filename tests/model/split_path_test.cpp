#include "model/split_path.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace treescope
