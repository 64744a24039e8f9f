#include "tools/values.h"

#include <gtest/gtest.h>

#include "tools/connection.h"
#include "tools/tree_image.h"
#include "tools/utf8.h"

namespace treectl {
namespace {

std::string json(const Value& value, std::string_view type) {
  std::string out;
  appendJsonValue(out, value, type);
  return out;
}

TEST(Values, AreOneLineInPlainOutput) {
  std::string out;
  appendPlain(out, {{"a\nb\tc\\d\x01\x7f", "\r"}, true});
  EXPECT_EQ(out, "a\\nb\\tc\\\\d\\x01\\x7f \\x0d");
}

TEST(Values, AreJsonOfTheirType) {
  EXPECT_EQ(json({{"18446744073709551615"}, false}, "uint64"), "18446744073709551615");
  EXPECT_EQ(json({{"true"}, false}, "bool"), "true");
  EXPECT_EQ(json({{"1e+20"}, false}, "double"), "1e+20");
  EXPECT_EQ(json({{"nan", "inf", "-inf", "-0"}, true}, "float"), "[\"nan\",\"inf\",\"-inf\",-0]");
  EXPECT_EQ(json({{"-nan"}, false}, "double"), "\"nan\"");
  EXPECT_EQ(json({{"-nan"}, false}, "text"), "\"-nan\"");
  EXPECT_EQ(json({{"42"}, false}, "text"), "\"42\"");
  EXPECT_EQ(json({{"42"}, false}, ""), "\"42\"");
  EXPECT_EQ(json({{"\"\\\n\t\x01"}, false}, "text"), "\"\\\"\\\\\\n\\t\\u0001\"");
}

TEST(Values, ThatAreNoUtf8AreBase64) {
  EXPECT_TRUE(isUtf8("a\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"));
  for (const char* const text : {"\xff", "\xc3", "\xc0\x80", "\xe0\x80\x80", "\xed\xa0\x80",
                                 "\xf0\x80\x80\x80", "\xf4\x90\x80\x80", "\x80", "\xc3("}) {
    EXPECT_FALSE(isUtf8(std::string_view(text)));
  }
  for (const std::string bytes : {"", "a", "ab", "abc", "\xff\xfe\x01\x02"}) {
    std::string text;
    appendBase64Value(text, {{bytes}, false});
    std::string decoded = "x";
    EXPECT_TRUE(decodeBase64(std::string_view(text).substr(1, text.size() - 2), decoded));
    EXPECT_EQ(decoded, bytes);
  }
  std::string decoded;
  for (const char* const text : {"a", "YQ=a", "Y===", "!!!!", "YQ==YQ=="}) {
    EXPECT_FALSE(decodeBase64(text, decoded)) << text;
  }
}

TEST(Values, AreComparedAsNumbersIfTheyAreFloating) {
  EXPECT_TRUE(isSameValue({{"1.50"}, false}, {{"1.5"}, false}, "double"));
  EXPECT_TRUE(isSameValue({{"nan"}, false}, {{"-nan"}, false}, "double"));
  EXPECT_FALSE(isSameValue({{"nan"}, false}, {{"1"}, false}, "double"));
  EXPECT_FALSE(isSameValue({{"1.50"}, false}, {{"1.5"}, false}, "text"));
  EXPECT_FALSE(
      isSameValue({{"9223372036854775807"}, false}, {{"9223372036854775806"}, false}, "int64"));
  EXPECT_FALSE(isSameValue({{"1"}, true}, {{"1"}, false}, "int32"));
}

}  // namespace
}  // namespace treectl
