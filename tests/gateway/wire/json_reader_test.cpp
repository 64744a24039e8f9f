#include "gateway/wire/json_reader.h"

#include <gmock/gmock.h>

#include <vector>

namespace {

using modelgate::JsonItem;
using modelgate::JsonPath;
using testing::ElementsAre;

/// Lists what was visited as "path=text".
class Visited final : public modelgate::JsonVisitor {
 public:
  bool visit(JsonPath path, const JsonItem& item) override {
    std::string line;
    for (const std::string& name : path) {
      line += "/" + name;
    }
    line += "=";
    line += item.kind == JsonItem::Kind::object  ? "{}"
            : item.kind == JsonItem::Kind::array ? "[]"
                                                 : item.text;
    lines.push_back(line);
    return line != refused;
  }

  std::vector<std::string> lines;
  std::string refused;
};

bool isJson(std::string_view text) {
  Visited visited;
  return readJson(text, visited);
}

TEST(WireJson, VisitsEachItemWithItsPath) {
  Visited visited;
  EXPECT_TRUE(
      readJson(R"( {"a": 1, "b": {"c": [-2, 1.50, "x\u00e4"]}, "d": null, "e": true} )", visited));
  EXPECT_THAT(visited.lines, ElementsAre("={}", "/a=1", "/b={}", "/b/c=[]", "/b/c/=-2",
                                         "/b/c/=1.50", "/b/c/=x\xC3\xA4", "/d=null", "/e=true"));
}

TEST(WireJson, EndsWhereTheVisitorRefuses) {
  Visited visited;
  visited.refused = "/a=1";
  EXPECT_FALSE(readJson(R"({"a": 1, "b": 2})", visited));
  EXPECT_THAT(visited.lines, ElementsAre("={}", "/a=1"));
}

TEST(WireJson, NumbersBeyond64BitsKeepTheirText) {
  Visited visited;
  EXPECT_TRUE(
      readJson("[18446744073709551615,18446744073709551616,-9223372036854775808,"
               "-9223372036854775809]",
               visited));
  EXPECT_THAT(visited.lines, ElementsAre("=[]", "/=18446744073709551615", "/=18446744073709551616",
                                         "/=-9223372036854775808", "/=-9223372036854775809"));
}

TEST(WireJson, RefusesWhatIsMalformed) {
  for (const char* const text :
       {"",        " ",        "{",           "}",     "{]",  "{\"a\"}", "{\"a\":}",  "{\"a\":1,}",
        "{'a':1}", "[1,]",     "[1 2]",       "nul",   "01",  "+1",      "1.",        "1e999",
        "\"\n\"",  "\"\xFF\"", "\"\\ud800\"", "{} {}", "{}x", "/**/{}",  "\xEF\xBB{}"}) {
    EXPECT_FALSE(isJson(text)) << text;
  }
}

TEST(WireJson, BoundsNesting) {
  const std::string open(modelgate::maxJsonNesting, '[');
  const std::string close(modelgate::maxJsonNesting, ']');
  EXPECT_TRUE(isJson(open + close));
  EXPECT_FALSE(isJson("[" + open + close + "]"));
  EXPECT_FALSE(isJson(std::string(1'000'000, '[')));
}

}  // namespace
