#include "term/shown_text.h"

#include <gtest/gtest.h>

namespace treescope {
namespace {

std::string printable(const std::string& text) {
  std::string line = "before ";
  appendPrintable(line, text);
  EXPECT_EQ(line.substr(0, 7), "before ");
  line.erase(0, 7);
  EXPECT_EQ(printableSize(text), line.size()) << testing::PrintToString(text);
  return line;
}

TEST(PrintableText, ReplacesEachControlByte) {
  for (int byte = 0; byte < 0x80; ++byte) {
    const bool kept = byte == 0 || byte == '\t' || byte == '\n' || (byte >= 0x20 && byte < 0x7F);
    const std::string one(1, static_cast<char>(byte));
    // At each offset in a word, and in the rest after the last word.
    for (std::size_t before = 0; before < 18; ++before) {
      const std::string head(before, 'a');
      EXPECT_EQ(printable(head + one + "0123456789"), head + (kept ? one : "?") + "0123456789")
          << byte << " at " << before;
      EXPECT_EQ(printable(head + one), head + (kept ? one : "?")) << byte << " at " << before;
    }
  }
}

struct Utf8Case {
  const char* text;
  const char* shown;
};

TEST(PrintableText, KeepsValidUtf8) {
  for (const char* text :
       {"\xC2\xA0", "gr\xC3\xBCn", "\xC5\x9B", "\xE2\x82\xAC", "\xED\x9F\xBF", "\xEE\x80\x80",
        "\xE0\xA0\x80", "\xF0\x9F\x98\x80", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_EQ(printable(text), text) << testing::PrintToString(text);
  }
  const std::string word = "0123456\xE2\x82\xAC";
  EXPECT_EQ(printable(word + word), word + word);
}

TEST(PrintableText, ReplacesC1ControlsInBothForms) {
  const Utf8Case cases[] = {
      {"\xC2\x80", "?"},
      {"a\xC2\x9B[31mb", "a?[31mb"},
      {"\xC2\x9F", "?"},
      {"\x80", "?"},
      {"a\x9B[31mb", "a?[31mb"},
      {"\x9F", "?"},
      {"0123456\xC2\x85", "0123456?"},
      {"\xC2\x85\xC2\x85\x85", "???"},
  };
  for (const Utf8Case& test : cases) {
    EXPECT_EQ(printable(test.text), test.shown) << testing::PrintToString(test.text);
  }
}

TEST(PrintableText, ReplacesOnlyC1BytesOfInvalidUtf8) {
  const Utf8Case cases[] = {
      {"\xFF\xFE\xA0\xBF", "\xFF\xFE\xA0\xBF"},
      {"\xE2\x82", "\xE2?"},            // cut short
      {"\xE2\x82z", "\xE2?z"},          // interrupted
      {"\xC0\x9B", "\xC0?"},            // overlong
      {"\xE0\x9B\x9B", "\xE0??"},       // overlong
      {"\xED\xA0\x80", "\xED\xA0?"},    // a surrogate
      {"\xF4\x90\x80\x80", "\xF4???"},  // above U+10FFFF
      {"\xF5\x80\x80\x80", "\xF5???"},  // above U+10FFFF
      {"\xC2\x1B", "\xC2?"},
      {"\xC2", "\xC2"},
  };
  for (const Utf8Case& test : cases) {
    EXPECT_EQ(printable(test.text), test.shown) << testing::PrintToString(test.text);
  }
}

TEST(PrintableText, FindsTheFirstControlCharacter) {
  EXPECT_EQ(findControl(""), 0U);
  EXPECT_EQ(findControl("0123456789"), 10U);
  EXPECT_EQ(findControl("0123456789\x1B\x1B"), 10U);
  EXPECT_EQ(findControl("\xC3\xBC\xC2\x9B"), 2U);
}

TEST(ShownText, IsUnchangedInAPipeOrFile) {
  const std::string text("\x1B[31m\x9B\xC2\x9B\x7F\0z", 11);
  std::string line;
  appendShown(line, text);
  EXPECT_EQ(line, text);
  EXPECT_EQ(shownText(text), text);
  EXPECT_EQ(shownSize(text), text.size());
}

}  // namespace
}  // namespace treescope
