#include "modelsrv/source/value_text.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "modelsrv/value_types.h"

namespace {

using namespace ModelSrv;
using namespace ModelSrv::internal;
using namespace std::string_literals;

template <typename T>
struct Case {
  std::string text;
  ModelRes result;
  T value;
};

/// Checks the result for each text. If the text is rejected the value must be unchanged.
template <typename T>
void check(const std::vector<Case<T>>& cases) {
  for (const Case<T>& c : cases) {
    const T before = static_cast<T>(c.value == T{} ? 1 : 0);
    T value = before;
    EXPECT_EQ(parseValue<T>(c.text, value), c.result) << '"' << c.text << '"';
    EXPECT_EQ(value, c.result == ModelRes_Success ? c.value : before) << '"' << c.text << '"';
  }
}

template <typename T>
std::string textOf(const T& value) {
  std::string text = "before ";
  appendValue<T>(text, value);
  EXPECT_TRUE(text.starts_with("before "));
  return text.substr(7);
}

template <typename T>
T read(std::string_view text) {
  T value{};
  EXPECT_EQ(parseValue<T>(text, value), ModelRes_Success) << text;
  return value;
}

TEST(ValueText, ReadsBool) {
  check<bool>({
      {"true", ModelRes_Success, true},
      {"false", ModelRes_Success, false},
      {"1", ModelRes_Success, true},
      {"0", ModelRes_Success, false},
      {" \ttrue\t ", ModelRes_Success, true},
      {"", ModelRes_BadText, false},
      {" ", ModelRes_BadText, false},
      {"2", ModelRes_BadText, false},
      {"TRUE", ModelRes_BadText, false},
      {"true\n", ModelRes_BadText, false},
      {"tru e", ModelRes_BadText, false},
      {"01", ModelRes_BadText, false},
      {"true\0"s, ModelRes_BadText, false},
  });
}

template <typename T>
class IntegerText : public testing::Test {};

TYPED_TEST_SUITE(IntegerText, IntegerTypes::into<testing::Types>);

/// One more than a decimal number of at least one digit, not below zero.
std::string successor(std::string digits) {
  for (std::size_t at = digits.size(); at-- > 0;) {
    if (digits[at] != '9') {
      ++digits[at];
      return digits;
    }
    digits[at] = '0';
  }
  return "1" + digits;
}

TYPED_TEST(IntegerText, ReadsExactlyTheRangeOfTheType) {
  using Limits = std::numeric_limits<TypeParam>;
  const std::string largest = std::to_string(Limits::max());
  const std::string smallest = std::to_string(Limits::min());
  const std::string below = Limits::is_signed ? "-" + successor(smallest.substr(1)) : "-1";
  check<TypeParam>({
      {largest, ModelRes_Success, Limits::max()},
      {smallest, ModelRes_Success, Limits::min()},
      {successor(largest), ModelRes_OutOfRange, 0},
      {below, ModelRes_OutOfRange, 0},
      {"0", ModelRes_Success, 0},
      {"-0", ModelRes_Success, 0},
      {"007", ModelRes_Success, 7},
      {" \t 42 \t", ModelRes_Success, 42},
      {std::string(400, '9'), ModelRes_OutOfRange, 0},
      {"-" + std::string(400, '9'), ModelRes_OutOfRange, 0},
  });
}

TYPED_TEST(IntegerText, RejectsWhatIsNotANumber) {
  for (const std::string& text : {""s, " "s, "x"s, "-"s, "--1"s, "+1"s, "1 2"s, "1.0"s, "0x1"s,
                                  "1\n"s, "\n1"s, "1\0"s, "- 1"s, "1e2"s, "\r1"s, "-1x"s}) {
    TypeParam value = 5;
    EXPECT_EQ(parseValue<TypeParam>(text, value), ModelRes_BadText) << '"' << text << '"';
    EXPECT_EQ(value, 5);
  }
}

TYPED_TEST(IntegerText, WritesTextThatReadsBack) {
  using Limits = std::numeric_limits<TypeParam>;
  std::mt19937_64 random(7);
  std::vector<TypeParam> values{Limits::min(), Limits::max(), 0, 1};
  for (int i = 0; i < 500; ++i) {
    values.push_back(static_cast<TypeParam>(random()));
  }
  for (const TypeParam value : values) {
    EXPECT_EQ(textOf(value), std::to_string(value));
    EXPECT_EQ(read<TypeParam>(textOf(value)), value);
  }
}

TEST(ValueText, ReadsFloatingPoint) {
  check<double>({
      {"1.5", ModelRes_Success, 1.5},
      {" \t-2.25e3\t", ModelRes_Success, -2250},
      {".5", ModelRes_Success, 0.5},
      {"5.", ModelRes_Success, 5},
      {"inf", ModelRes_Success, std::numeric_limits<double>::infinity()},
      {"-inf", ModelRes_Success, -std::numeric_limits<double>::infinity()},
      {"1e308", ModelRes_Success, 1e308},
      {"5e-324", ModelRes_Success, std::numeric_limits<double>::denorm_min()},
      {"1e309", ModelRes_OutOfRange, 0},
      {"-1e309", ModelRes_OutOfRange, 0},
      {"1e-400", ModelRes_OutOfRange, 0},
      {"", ModelRes_BadText, 0},
      {" ", ModelRes_BadText, 0},
      {"+1", ModelRes_BadText, 0},
      {"1,5", ModelRes_BadText, 0},
      {"1.5x", ModelRes_BadText, 0},
      {"1.5\n", ModelRes_BadText, 0},
      {"0x10", ModelRes_BadText, 0},
      {"1e", ModelRes_BadText, 0},
      {"1.5\0"s, ModelRes_BadText, 0},
  });
  check<float>({
      {"3.4028235e38", ModelRes_Success, std::numeric_limits<float>::max()},
      {"3.5e38", ModelRes_OutOfRange, 0},
      {"1e-45", ModelRes_Success, std::numeric_limits<float>::denorm_min()},
      {"1e-60", ModelRes_OutOfRange, 0},
  });
}

TEST(ValueText, WritesFloatingPointInTheShortestForm) {
  EXPECT_EQ(textOf(0.1), "0.1");
  EXPECT_EQ(textOf(0.1F), "0.1");
  EXPECT_EQ(textOf(42.0), "42");
  EXPECT_EQ(textOf(-0.0), "-0");
  EXPECT_EQ(textOf(1e300), "1e+300");
  EXPECT_EQ(textOf(std::numeric_limits<double>::infinity()), "inf");
  EXPECT_EQ(textOf(-std::numeric_limits<float>::infinity()), "-inf");
  EXPECT_EQ(textOf(std::numeric_limits<double>::quiet_NaN()), "nan");
  EXPECT_EQ(textOf(-std::numeric_limits<float>::quiet_NaN()), "-nan");
}

template <typename T, typename Word>
void expectSameBits(Word bits) {
  const T value = std::bit_cast<T>(bits);
#ifdef __i386__
  // A register that floating point is returned in makes each NaN quiet.
  if (value != value) {
    bits |= Word{1} << static_cast<unsigned>(std::numeric_limits<T>::digits - 2);
  }
#endif
  T back{};
  const std::string text = textOf(value);
  ASSERT_EQ(parseValue<T>(text, back), ModelRes_Success) << text;
  EXPECT_EQ(std::bit_cast<Word>(back), bits) << text;
}

TEST(ValueText, FloatingPointOfAnyBitsReadsBackToTheSameBits) {
  std::mt19937_64 random(11);
  for (int i = 0; i < 20000; ++i) {
    const std::uint64_t bits = random();
    expectSameBits<double>(bits);
    expectSameBits<float>(static_cast<std::uint32_t>(bits));
    // Infinities, NaNs and subnormal numbers, which are rare among random bits.
    expectSameBits<double>(bits | 0x7FF0000000000000U);
    expectSameBits<float>(static_cast<std::uint32_t>(bits) | 0x7F800000U);
    expectSameBits<double>(bits & 0x800FFFFFFFFFFFFFU);
  }
}

TEST(ValueText, RejectsNanWithInvalidBits) {
  for (const char* text : {"nan(0x0)", "nan(0x10000000000000)", "nan(0x1", "nan(0xg)"}) {
    double value = 5;
    const ModelRes result = parseValue<double>(text, value);
    EXPECT_TRUE(result == ModelRes_BadText || value != value) << text;
  }
}

TEST(ValueText, ReadsTheCountedFormIfTheCountFitsExactly) {
  const struct {
    std::string text;
    std::string value;
  } cases[] = {
      {"", ""},
      {"plain", "plain"},
      {" spaces are kept\t", " spaces are kept\t"},
      {"5\nhello", "hello"},
      {"0\n", ""},
      {"11\nhello world", "hello world"},
      {"3\na\nb", "a\nb"},
      {"4\na\0\nb"s, "a\0\nb"s},
      {"1\n\n", "\n"},
      {"4\nhello", "4\nhello"},
      {"6\nhello", "6\nhello"},
      {"5", "5"},
      {"\nhello", "\nhello"},
      {" 5\nhello", " 5\nhello"},
      {"5 \nhello", "5 \nhello"},
      {"+5\nhello", "+5\nhello"},
      {"-5\nhello", "-5\nhello"},
      {"99999999999999999999999\nhello", "99999999999999999999999\nhello"},
      {"5\r\nhello", "5\r\nhello"},
      {"005\nhello", "hello"},
      {"00\n", ""},
      {"105\nhello", "105\nhello"},
      {"015\nhello", "015\nhello"},
      {std::string(100, '0') + "5\nhello", "hello"},
      {"1" + std::string(100, '0') + "5\nhello", "1" + std::string(100, '0') + "5\nhello"},
      {std::string(100, '0'), std::string(100, '0')},
      {std::string(100, '7') + "x\n", std::string(100, '7') + "x\n"},
      {"\xFF\xFE", "\xFF\xFE"},
  };
  for (const auto& c : cases) {
    std::string_view value = "untouched";
    EXPECT_EQ(parseValue<std::string>(c.text, value), ModelRes_Success);
    EXPECT_EQ(value, c.value) << c.text;
  }
}

TEST(ValueText, ReadsATextOfMaximumSizeAndNotOneByteMore) {
  const std::string largest(ModelValueText_Max, 'x');
  std::string_view value;
  EXPECT_EQ(parseValue<std::string>(largest, value), ModelRes_Success);
  EXPECT_EQ(value.size(), ModelValueText_Max);
  const std::string counted = std::to_string(largest.size()) + "\n" + largest;
  EXPECT_LE(counted.size(), maxStoreText);
  EXPECT_EQ(parseValue<std::string>(counted, value), ModelRes_Success);
  EXPECT_EQ(value.size(), ModelValueText_Max);
  EXPECT_EQ(parseValue<std::string>(largest + "x", value), ModelRes_TooLarge);
  EXPECT_EQ(value.size(), ModelValueText_Max);
}

TEST(ValueText, ComparesValuesByTheirBits) {
  EXPECT_FALSE(isSameValue<double>(0.0, -0.0));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(isSameValue<double>(nan, nan));
  EXPECT_FALSE(isSameValue<float>(1.0F, 2.0F));
  EXPECT_TRUE(isSameValue<std::string>("a\0b"s, "a\0b"s));
  EXPECT_FALSE(isSameValue<std::string>("a\0b"s, "a\0c"s));
}

TEST(LineSplitter, ReturnsOneLineMoreThanThereAreLineFeeds) {
  const struct {
    std::string text;
    std::vector<std::string> lines;
  } cases[] = {
      {"", {""}},         {"a", {"a"}},           {"a\nb", {"a", "b"}},
      {"a\n", {"a", ""}}, {"\n\n", {"", "", ""}}, {"\0\n\0"s, {"\0"s, "\0"s}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(LineSplitter::count(c.text), c.lines.size());
    LineSplitter splitter(c.text);
    for (const std::string& line : c.lines) {
      EXPECT_EQ(splitter.next(), line);
    }
  }
}

}  // namespace
