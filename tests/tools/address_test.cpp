#include "tools/address.h"

#include <gtest/gtest.h>

namespace treectl {
namespace {

struct MatchCase {
  const char* pattern;
  std::string name;
  bool matches;
};

TEST(NamePattern, MatchesBytesAndWildcards) {
  const MatchCase cases[] = {{"speed", "speed", true},
                             {"speed", "spee", false},
                             {"speed", "speeds", false},
                             {"", "", true},
                             {"*", "", true},
                             {"*", "anything", true},
                             {"?", "", false},
                             {"?", "x", true},
                             {"?", "xy", false},
                             {"s*d", "speed", true},
                             {"s*d", "sd", true},
                             {"s*d", "speeds", false},
                             {"*e*e*", "speed", true},
                             {"*e*e*e*", "speed", false},
                             {"s\\*d", "s*d", true},
                             {"s\\*d", "speed", false},
                             {"\\?", "?", true},
                             {"\\x41", "A", true},
                             {"\\x4", "x4", true},
                             {"\\xZZ", "xZZ", true},
                             {"a\\", "a\\", true},
                             {"\\x00", std::string(1, 0), true},
                             {"\\/\\[", "/[", true},
                             {"\\xff*", "\xff!", true}};
  for (const MatchCase& test : cases) {
    EXPECT_EQ(NamePattern(test.pattern).matches(test.name), test.matches)
        << test.pattern << " and " << test.name;
  }
}

TEST(NamePattern, TakesNoLongTimeForManyWildcards) {
  std::string pattern;
  for (int i = 0; i < 200; ++i) {
    pattern += "a*";
  }
  EXPECT_FALSE(NamePattern(pattern + 'b').matches(std::string(20000, 'a')));
}

TEST(NamePattern, HasNumbersOnlyWithoutEscapes) {
  EXPECT_EQ(NamePattern("12").number(), 12U);
  EXPECT_EQ(NamePattern("\\12").number(), std::nullopt);
  EXPECT_EQ(NamePattern("123456").number(), std::nullopt);
  EXPECT_EQ(NamePattern("1x").number(), std::nullopt);
  EXPECT_EQ(NamePattern("#12").childId(), 12U);
  EXPECT_EQ(NamePattern("\\#12").childId(), std::nullopt);
  EXPECT_EQ(NamePattern("#").childId(), std::nullopt);
}

TEST(NamePattern, IsPrintedSoThatItCanBeTypedAgain) {
  const std::string names[] = {
      "speed", "a/b",        "[0]",      "*",    "?",        "\\",   "#5",
      "a#5",   "line\nfeed", "\xff\xfe", "\x7f", "\xc3\xa4", "\xc3", std::string("a\0b", 3)};
  for (const std::string& name : names) {
    std::string escaped;
    appendEscapedName(escaped, name);
    const NamePattern pattern(escaped);
    EXPECT_FALSE(pattern.hasWildcards()) << escaped;
    EXPECT_EQ(pattern.childId(), std::nullopt) << escaped;
    EXPECT_EQ(pattern.bytes(), name) << escaped;
  }
  std::string escaped;
  appendEscapedName(escaped, "#a/[*?\\\n\xff\xc3\xa4]");
  EXPECT_EQ(escaped, "\\#a\\/\\[\\*\\?\\\\\\x0a\\xff\xc3\xa4\\]");
}

Address parsed(std::string_view text, const std::string& server = {}) {
  auto result = parseAddress(text, server);
  EXPECT_TRUE(std::holds_alternative<Address>(result)) << text;
  return std::get<Address>(result);
}

TEST(Address, BeginsWithTheServerUnlessThatIsGiven) {
  for (const char* const text : {"/Model_x/cpu/load", "Model_x/cpu/load", "//Model_x//cpu/load/"}) {
    const Address address = parsed(text);
    EXPECT_EQ(address.server.bytes(), "Model_x") << text;
    ASSERT_EQ(address.names.size(), 2U) << text;
    EXPECT_EQ(address.names[1].bytes(), "load") << text;
    EXPECT_FALSE(address.element) << text;
  }
  for (const char* const text : {"/cpu/load", "cpu/load"}) {
    const Address address = parsed(text, "Model_*");
    EXPECT_FALSE(address.server.hasWildcards());
    EXPECT_EQ(address.server.bytes(), "Model_*");
    EXPECT_EQ(address.names.size(), 2U) << text;
  }
  EXPECT_TRUE(parsed("/", "Model_x").names.empty());
  EXPECT_TRUE(parsed("", "Model_x").names.empty());
}

TEST(Address, HasAnElementInBracketsAtItsEnd) {
  EXPECT_EQ(parsed("/S/a[1]").element->number(), 1U);
  EXPECT_EQ(parsed("/S/a[1min]").element->bytes(), "1min");
  EXPECT_EQ(parsed("/S/a[x/y]").element->bytes(), "x/y");
  EXPECT_EQ(parsed("/S/a[x\\]]").element->bytes(), "x]");
  EXPECT_EQ(parsed("/S/a\\[1]").names.front().bytes(), "a[1]");
  EXPECT_TRUE(parsed("/S/a[*]").hasWildcards());
}

TEST(Address, IsRejectedWithAReason) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "\"\": expected an address that begins with a server's name"},
      {"/", "\"/\": expected an address that begins with a server's name"},
      {"/S/a[1", "\"/S/a[1\": expected \"]\" at the end, after \"[\""},
      {"/S/a[1]b", "\"/S/a[1]b\": expected \"]\" at the end, after \"[\""},
      {"/S/a[1]/b", "\"/S/a[1]/b\": expected \"]\" at the end, after \"[\""},
      {"/S/\x01[", "\"/S/\\x01[\": expected \"]\" at the end, after \"[\""}};
  for (const auto& [text, problem] : cases) {
    const auto result = parseAddress(text, {});
    ASSERT_TRUE(std::holds_alternative<std::string>(result)) << text;
    EXPECT_EQ(std::get<std::string>(result), problem);
  }
}

}  // namespace
}  // namespace treectl
