#include "gateway/wire/utf8.h"

#include <gtest/gtest.h>

namespace {

using modelgate::isUtf8;
using modelgate::toUtf8;

TEST(WireUtf8, TakesEachLengthUpToItsLimits) {
  for (const char* const text :
       {"", "plain", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
        "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "a\xC3\xA4z"}) {
    EXPECT_TRUE(isUtf8(text)) << text;
    EXPECT_EQ(toUtf8(text), text);
  }
  EXPECT_TRUE(isUtf8(std::string_view("\0", 1)));
}

TEST(WireUtf8, RefusesCutOverlongSurrogateAndTooLargeCharacters) {
  for (const char* const text :
       {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC2", "\xC2\x41", "\xE0\x9F\xBF", "\xE0\xA0",
        "\xED\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF0\x90\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80",
        "\xFF", "\xE1\x80\x41", "fine\xFE"}) {
    EXPECT_FALSE(isUtf8(text)) << text;
    EXPECT_TRUE(isUtf8(toUtf8(text)));
  }
}

TEST(WireUtf8, ReplacesEachWrongByte) {
  EXPECT_EQ(toUtf8("a\xE0\x80z\xC3\xA4"), "a\xEF\xBF\xBD\xEF\xBF\xBDz\xC3\xA4");
}

}  // namespace
