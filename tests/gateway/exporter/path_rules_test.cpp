#include "gateway/exporter/path_rules.h"

#include <gtest/gtest.h>

namespace {

using modelgate::isPathRule;
using modelgate::PathRules;

bool allows(std::vector<std::string> rules, std::string_view server,
            std::vector<std::string_view> names) {
  return PathRules(rules).allow(server, names);
}

TEST(PathRules, AllowNothingIfThereAreNone) {
  EXPECT_FALSE(allows({}, "host", {"cpu"}));
  EXPECT_FALSE(allows({}, "host", {}));
}

TEST(PathRules, AllowASubtreeByWholeLevels) {
  EXPECT_TRUE(allows({"/cpu/load"}, "host", {"cpu", "load"}));
  EXPECT_TRUE(allows({"/cpu/load/"}, "host", {"cpu", "load", "x"}));
  EXPECT_FALSE(allows({"/cpu/load"}, "host", {"cpu", "load2"}));
  EXPECT_FALSE(allows({"/cpu/load"}, "host", {"cpu"}));
  EXPECT_FALSE(allows({"/cpu/load"}, "host", {}));
  EXPECT_FALSE(allows({"/cpu/load"}, "host", {"cpu/load"}));
  EXPECT_FALSE(allows({"/cpu"}, "host", {"", "cpu"}));
}

TEST(PathRules, AllowASubtreeOfOneServer) {
  EXPECT_TRUE(allows({"/host/cpu"}, "host", {"cpu", "x"}));
  EXPECT_FALSE(allows({"/host/cpu"}, "other", {"cpu", "x"}));
  EXPECT_TRUE(allows({"/host/cpu"}, "other", {"host", "cpu"}));
  EXPECT_TRUE(allows({"/host"}, "host", {}));
  EXPECT_TRUE(allows({"/host"}, "host", {"anything"}));
  EXPECT_FALSE(allows({"/host"}, "host2", {"anything"}));
}

TEST(PathRules, AllowEverythingWithOneSlash) {
  EXPECT_TRUE(allows({"/"}, "host", {}));
  EXPECT_TRUE(allows({"/x", "/"}, "host", {"a", "b"}));
}

TEST(PathRules, HaveAForm) {
  for (const char* const rule : {"/", "/a", "/a/b c", "/a/"}) {
    EXPECT_TRUE(isPathRule(rule)) << rule;
  }
  for (const char* const rule : {"", "a", "//", "/a//b", "/a\n"}) {
    EXPECT_FALSE(isPathRule(rule)) << rule;
  }
}

}  // namespace
