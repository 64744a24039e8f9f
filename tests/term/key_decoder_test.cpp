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

struct SequenceCase {
  const char* name;
  std::string bytes;
  Keys keys;
};

class KeyDecoding : public testing::TestWithParam<SequenceCase> {};

TEST_P(KeyDecoding, DecodesTheseKeys) {
  EXPECT_EQ(keysOf(GetParam().bytes), GetParam().keys);
}

const auto nameOfCase = [](const auto& test) { return test.param.name; };

INSTANTIATE_TEST_SUITE_P(
    Known, KeyDecoding,
    testing::Values(
        SequenceCase{"Up", "\033[A", {KEY_UP}}, SequenceCase{"Down", "\033[B", {KEY_DOWN}},
        SequenceCase{"Right", "\033[C", {KEY_RIGHT}}, SequenceCase{"Left", "\033[D", {KEY_LEFT}},
        SequenceCase{"Home", "\033[1~", {KEY_HOME}}, SequenceCase{"Delete", "\033[3~", {KEY_DC}},
        SequenceCase{"End", "\033[4~", {KEY_END}}, SequenceCase{"PageUp", "\033[5~", {KEY_PPAGE}},
        SequenceCase{"PageDown", "\033[6~", {KEY_NPAGE}},
        SequenceCase{"TwoInARow", "\033[A\033[3~", {KEY_UP, KEY_DC}}),
    nameOfCase);

INSTANTIATE_TEST_SUITE_P(
    Unknown, KeyDecoding,
    testing::Values(SequenceCase{"Insert", "\033[2~", {'2', '~'}},
                    SequenceCase{"HomeByLetter", "\033[H", {'H'}},
                    SequenceCase{"EndByLetter", "\033[F", {'F'}},
                    SequenceCase{"UpOfAKeypad", "\033OA", {'O', 'A'}},
                    SequenceCase{"FunctionKey", "\033[11~", {'1', '~'}},
                    SequenceCase{"FunctionKeyWithAKnownLastDigit", "\033[15~", {'5', '~'}},
                    SequenceCase{"ArrowWithShift", "\033[1;2A", {';', '2', 'A'}},
                    SequenceCase{"LetterAfterADigit", "\033[3A", {'A'}},
                    SequenceCase{"TildeWithoutADigit", "\033[~", {'~'}},
                    SequenceCase{"TildeAfterEscape", "\033~", {'~'}},
                    SequenceCase{"DigitAfterEscape", "\0333~", {'3', '~'}},
                    SequenceCase{"TwoBrackets", "\033[[A", {'[', 'A'}},
                    SequenceCase{"LetterOnly", "\033x", {'x'}},
                    SequenceCase{"ReturnAfterEscape", "\033\n", {'\n'}}),
    nameOfCase);

INSTANTIATE_TEST_SUITE_P(
    Restarted, KeyDecoding,
    testing::Values(SequenceCase{"EscapeTwice", "\033\033[A", {KEY_UP}},
                    SequenceCase{"EscapeAfterABracket", "\033[\033[B", {KEY_DOWN}},
                    SequenceCase{"EscapeAfterADigit", "\033[3\033[C", {KEY_RIGHT}},
                    SequenceCase{"NothingOfAnIncompleteOne", "\033[3", {}},
                    SequenceCase{"CleanAfterAnUnknownOne", "\033x[A", {'x', '[', 'A'}},
                    SequenceCase{"CleanAfterAKey", "\033[AA", {KEY_UP, 'A'}}),
    nameOfCase);

INSTANTIATE_TEST_SUITE_P(
    Text, KeyDecoding,
    testing::Values(SequenceCase{"TheBytesOfSequences",
                                 "[13456ABCD~",
                                 {'[', '1', '3', '4', '5', '6', 'A', 'B', 'C', 'D', '~'}},
                    SequenceCase{"BracketAndLetter", "[A", {'[', 'A'}},
                    SequenceCase{"ZeroByte", std::string(1, '\0'), {0}},
                    SequenceCase{"BytesAboveAscii", "\xC3\xA4\xFF", {0xC3, 0xA4, 0xFF}}),
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
