#include "term/key_decoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace treescope {
namespace {

using Keys = std::vector<int>;

Keys keysOf(const std::string& bytes) {
  KeyDecoder decoder;
  Keys keys;
  for (const char byte : bytes) {
    if (const std::optional<int> key = decoder.take(static_cast<unsigned char>(byte))) {
      keys.push_back(*key);
    }
  }
  return keys;
}

struct Case {
  const char* name;
  std::string bytes;
  Keys keys;
};

class KeyDecoding : public testing::TestWithParam<Case> {};

TEST_P(KeyDecoding, DecodesTheseKeys) {
  EXPECT_EQ(keysOf(GetParam().bytes), GetParam().keys);
}

const auto nameOfCase = [](const auto& test) { return test.param.name; };

INSTANTIATE_TEST_SUITE_P(
    Known, KeyDecoding,
    testing::Values(Case{"Up", "\033[A", {KEY_UP}}, Case{"Down", "\033[B", {KEY_DOWN}},
                    Case{"Right", "\033[C", {KEY_RIGHT}}, Case{"Left", "\033[D", {KEY_LEFT}},
                    Case{"Home", "\033[1~", {KEY_HOME}}, Case{"Delete", "\033[3~", {KEY_DC}},
                    Case{"End", "\033[4~", {KEY_END}}, Case{"PageUp", "\033[5~", {KEY_PPAGE}},
                    Case{"PageDown", "\033[6~", {KEY_NPAGE}},
                    Case{"TwoInARow", "\033[A\033[3~", {KEY_UP, KEY_DC}}),
    nameOfCase);

INSTANTIATE_TEST_SUITE_P(
    Unknown, KeyDecoding,
    testing::Values(Case{"Insert", "\033[2~", {'2', '~'}}, Case{"HomeByLetter", "\033[H", {'H'}},
                    Case{"EndByLetter", "\033[F", {'F'}}, Case{"UpOfAKeypad", "\033OA", {'O', 'A'}},
                    Case{"FunctionKey", "\033[11~", {'1', '~'}},
                    Case{"FunctionKeyWithAKnownLastDigit", "\033[15~", {'5', '~'}},
                    Case{"ArrowWithShift", "\033[1;2A", {';', '2', 'A'}},
                    Case{"LetterAfterADigit", "\033[3A", {'A'}},
                    Case{"TildeWithoutADigit", "\033[~", {'~'}},
                    Case{"TildeAfterEscape", "\033~", {'~'}},
                    Case{"DigitAfterEscape", "\0333~", {'3', '~'}},
                    Case{"TwoBrackets", "\033[[A", {'[', 'A'}}, Case{"LetterOnly", "\033x", {'x'}},
                    Case{"ReturnAfterEscape", "\033\n", {'\n'}}),
    nameOfCase);

INSTANTIATE_TEST_SUITE_P(Restarted, KeyDecoding,
                         testing::Values(Case{"EscapeTwice", "\033\033[A", {KEY_UP}},
                                         Case{"EscapeAfterABracket", "\033[\033[B", {KEY_DOWN}},
                                         Case{"EscapeAfterADigit", "\033[3\033[C", {KEY_RIGHT}},
                                         Case{"NothingOfAnIncompleteOne", "\033[3", {}},
                                         Case{"CleanAfterAnUnknownOne", "\033x[A", {'x', '[', 'A'}},
                                         Case{"CleanAfterAKey", "\033[AA", {KEY_UP, 'A'}}),
                         nameOfCase);

INSTANTIATE_TEST_SUITE_P(
    Text, KeyDecoding,
    testing::Values(Case{"TheBytesOfSequences",
                         "[13456ABCD~",
                         {'[', '1', '3', '4', '5', '6', 'A', 'B', 'C', 'D', '~'}},
                    Case{"BracketAndLetter", "[A", {'[', 'A'}},
                    Case{"ZeroByte", std::string(1, '\0'), {0}},
                    Case{"BytesAboveAscii", "\xC3\xA4\xFF", {0xC3, 0xA4, 0xFF}}),
    nameOfCase);

TEST(KeyDecoder, EveryByteOutsideASequenceIsItself) {
  for (int byte = 0; byte < 256; ++byte) {
    if (byte != 27) {
      EXPECT_EQ(KeyDecoder().take(byte), byte);
    }
  }
}

TEST(KeyDecoder, TheEndOfInputIsDeliveredAndEndsASequence) {
  KeyDecoder decoder;
  EXPECT_EQ(decoder.take(27), std::nullopt);
  EXPECT_EQ(decoder.take(-1), -1);
  EXPECT_EQ(decoder.take('['), '[');
}

}  // namespace
}  // namespace treescope
