#include "term/line_buffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "term/key_decoder.h"

namespace treescope {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<std::string>;

LineBuffer bufferWith(const std::string& text, std::uint32_t cursor) {
  LineBuffer buffer;
  buffer.setText(text);
  buffer.moveTo(cursor);
  return buffer;
}

/// A buffer whose history is `lines`, with an empty text.
LineBuffer bufferAfter(const Lines& lines) {
  LineBuffer buffer;
  for (const std::string& line : lines) {
    buffer.setText(line);
    static_cast<void>(buffer.accept());
  }
  buffer.clear();
  return buffer;
}

/// One operation on a text and a cursor.
struct Edit {
  const char* name;
  std::function<void(LineBuffer&)> operation;
  std::string text;
  std::uint32_t cursor;
  std::string textAfter;
  std::uint32_t cursorAfter;
};

class LineBufferEdit : public testing::TestWithParam<Edit> {};

TEST_P(LineBufferEdit, ChangesTextAndCursor) {
  LineBuffer buffer = bufferWith(GetParam().text, GetParam().cursor);
  GetParam().operation(buffer);
  EXPECT_EQ(buffer.text(), GetParam().textAfter);
  EXPECT_EQ(buffer.cursor(), GetParam().cursorAfter);
  EXPECT_THAT(buffer.history(), IsEmpty());
}

const auto nameOfEdit = [](const auto& test) { return test.param.name; };

const auto moveLeft = [](LineBuffer& buffer) { buffer.moveLeft(); };
const auto moveRight = [](LineBuffer& buffer) { buffer.moveRight(); };
const auto toStart = [](LineBuffer& buffer) { buffer.moveToStart(); };
const auto toEnd = [](LineBuffer& buffer) { buffer.moveToEnd(); };
const auto clear = [](LineBuffer& buffer) { buffer.clear(); };
const auto setText = [](LineBuffer& buffer) { buffer.setText("ls "); };

INSTANTIATE_TEST_SUITE_P(Moving, LineBufferEdit,
                         testing::Values(Edit{"Left", moveLeft, "abc", 2, "abc", 1},
                                         Edit{"LeftAtStart", moveLeft, "a", 0, "a", 0},
                                         Edit{"LeftPastTheEnd", moveLeft, "abc", 5, "abc", 4},
                                         Edit{"Right", moveRight, "abc", 1, "abc", 2},
                                         Edit{"RightAtTheEnd", moveRight, "abc", 3, "abc", 4},
                                         Edit{"ToStart", toStart, "abc", 2, "abc", 0},
                                         Edit{"ToEnd", toEnd, "abc", 1, "abc", 3},
                                         Edit{"ToEndFromPastIt", toEnd, "abc", 5, "abc", 3}),
                         nameOfEdit);

INSTANTIATE_TEST_SUITE_P(Replacing, LineBufferEdit,
                         testing::Values(Edit{"Clear", clear, "abc", 2, "", 0},
                                         Edit{"SetText", setText, "abc", 2, "ls ", 2}),
                         nameOfEdit);

std::function<void(LineBuffer&)> insertion(int code) {
  return [code](LineBuffer& buffer) { buffer.insertKey(code); };
}

INSTANTIATE_TEST_SUITE_P(
    Inserting, LineBufferEdit,
    testing::Values(Edit{"AtTheStart", insertion('x'), "abc", 0, "xabc", 1},
                    Edit{"InTheMiddle", insertion('x'), "abc", 1, "axbc", 2},
                    Edit{"AtTheEnd", insertion('x'), "abc", 3, "abcx", 4},
                    Edit{"PastTheEnd", insertion('x'), "abc", 5, "abcx", 6},
                    Edit{"AByteAboveAscii", insertion(0xC3), "", 0, "\xC3", 1},
                    Edit{"ZeroInsertsNothing", insertion(0), "abc", 1, "abc", 2},
                    Edit{"ZeroPastTheEnd", insertion(0), "abc", 3, "abc", 4},
                    Edit{"ALowByteOfZero", insertion(0x4100), "abc", 1, "abc", 2},
                    Edit{"TwoBytesLowestFirst", insertion(0x4241), "x", 0, "ABx", 1},
                    Edit{"UpToAZeroByte", insertion(0x430041), "x", 0, "Ax", 1},
                    Edit{"ASpecialKeyAsText", insertion(KEY_UP), "", 0, "\x03\x01", 1},
                    Edit{"ANegativeCode", insertion(-1), "", 0, "\xFF\xFF\xFF\xFF", 1}),
    nameOfEdit);

std::function<void(LineBuffer&)> deletionBackward(bool deletes) {
  return [deletes](LineBuffer& buffer) { EXPECT_EQ(buffer.deleteBackward(), deletes); };
}

std::function<void(LineBuffer&)> deletionAtCursor(bool deletes) {
  return [deletes](LineBuffer& buffer) { EXPECT_EQ(buffer.deleteAtCursor(), deletes); };
}

INSTANTIATE_TEST_SUITE_P(
    Deleting, LineBufferEdit,
    testing::Values(Edit{"Backward", deletionBackward(true), "abcd", 2, "acd", 1},
                    Edit{"BackwardAtTheEnd", deletionBackward(true), "abc", 3, "ab", 2},
                    Edit{"BackwardPastTheEndOnlyMoves", deletionBackward(true), "abc", 4, "abc", 3},
                    Edit{"BackwardAtTheStart", deletionBackward(false), "abc", 0, "abc", 0},
                    Edit{"BackwardOnAnEmptyLine", deletionBackward(false), "", 0, "", 0},
                    Edit{"BackwardPastAnEmptyLine", deletionBackward(false), "", 2, "", 2},
                    Edit{"AtCursor", deletionAtCursor(true), "abcd", 1, "acd", 1},
                    Edit{"AtCursorAtTheStart", deletionAtCursor(true), "a", 0, "", 0},
                    Edit{"AtCursorAtTheEnd", deletionAtCursor(false), "abc", 3, "abc", 3},
                    Edit{"AtCursorPastTheEnd", deletionAtCursor(false), "abc", 4, "abc", 4},
                    Edit{"AtCursorOnAnEmptyLine", deletionAtCursor(false), "", 0, "", 0}),
    nameOfEdit);

const auto killToEnd = [](LineBuffer& buffer) { buffer.killToEnd(); };
const auto killToStart = [](LineBuffer& buffer) { buffer.killToStart(); };

INSTANTIATE_TEST_SUITE_P(Killing, LineBufferEdit,
                         testing::Values(Edit{"ToEnd", killToEnd, "abc def", 4, "abc ", 4},
                                         Edit{"ToEndAtTheEnd", killToEnd, "abc", 3, "abc", 3},
                                         Edit{"ToEndAtTheStart", killToEnd, "abc", 0, "", 0},
                                         Edit{"ToStart", killToStart, "abc def", 4, "def", 0},
                                         Edit{"ToStartAtTheStart", killToStart, "abc", 0, "abc", 0},
                                         Edit{"ToStartFromPastTheEnd", killToStart, "abc", 5, "",
                                              0}),
                         nameOfEdit);

TEST(LineBuffer, KillingToTheEndThrowsIfTheCursorIsPastIt) {
  LineBuffer buffer = bufferWith("abc", 4);
  EXPECT_THROW(buffer.killToEnd(), std::out_of_range);
  EXPECT_EQ(buffer.text(), "abc");
  EXPECT_EQ(buffer.cursor(), 4U);
}

std::function<void(LineBuffer&)> lastWordReplacement(const char* word, bool replaces) {
  return [=](LineBuffer& buffer) { EXPECT_EQ(buffer.replaceLastWord(word), replaces); };
}

INSTANTIATE_TEST_SUITE_P(
    ReplacingTheLastWord, LineBufferEdit,
    testing::Values(
        Edit{"AfterASlash", lastWordReplacement("name/", true), "cd a/b/na", 1, "cd a/b/name/", 12},
        Edit{"AfterASpace", lastWordReplacement("../", true), "cd ..", 1, "cd ../", 6},
        Edit{"AfterTheLastOfBoth", lastWordReplacement("e", true), "/a b/c d", 1, "/a b/c e", 8},
        Edit{"AnEmptyWord", lastWordReplacement("Model_a", true), "cd ", 1, "cd Model_a", 10},
        Edit{"ByNothing", lastWordReplacement("", true), "cd a/b c", 1, "cd a/b ", 7},
        Edit{"TheOnlyWord", lastWordReplacement("word", false), "noslash", 1, "noslash", 1},
        Edit{"OfAnEmptyLine", lastWordReplacement("word", false), "", 0, "", 0}),
    nameOfEdit);

/// Goes back by `steps`, or forward if they are negative, and returns the text.
std::string browsed(LineBuffer& buffer, int steps) {
  if (steps >= 0) {
    buffer.browseOlder(static_cast<std::uint8_t>(steps));
  } else {
    buffer.browseNewer(static_cast<std::uint8_t>(-steps));
  }
  EXPECT_EQ(buffer.cursor(), buffer.text().size());
  return buffer.text();
}

TEST(LineBuffer, BrowsesUpToTheEndsOfTheHistory) {
  struct Case {
    std::vector<int> steps;
    Lines texts;
  };
  const std::vector<Case> cases = {
      {{1, 1, 1, 1}, {"three", "two", "one", "one"}},
      {{2, -1, -1, -1}, {"two", "three", "typed", "typed"}},
      {{255, 0, -255}, {"one", "one", "typed"}},
      {{-1, 3, -2}, {"typed", "one", "three"}},
  };
  for (const Case& each : cases) {
    LineBuffer buffer = bufferAfter({"one", "two", "three"});
    buffer.setText("typed");
    Lines texts;
    for (const int steps : each.steps) {
      texts.push_back(browsed(buffer, steps));
    }
    EXPECT_EQ(texts, each.texts) << testing::PrintToString(each.steps);
    EXPECT_THAT(buffer.history(), ElementsAre("one", "two", "three"));
  }
}

TEST(LineBuffer, BrowsingAnEmptyHistoryOnlyMovesTheCursorToTheEnd) {
  for (const int steps : {1, 10, -1, -10}) {
    LineBuffer buffer = bufferWith("abc", 1);
    EXPECT_EQ(browsed(buffer, steps), "abc");
  }
}

TEST(LineBuffer, KeepsALineThatWasEditedWhileBrowsing) {
  LineBuffer buffer = bufferAfter({"one", "two"});
  browsed(buffer, 1);
  buffer.insertKey('!');
  EXPECT_EQ(browsed(buffer, 1), "one");
  EXPECT_EQ(browsed(buffer, -1), "two!");
  EXPECT_THAT(buffer.history(), ElementsAre("one", "two"));
}

TEST(LineBuffer, AcceptingALineEndsBrowsing) {
  LineBuffer buffer = bufferAfter({"one", "two", "three"});
  EXPECT_EQ(browsed(buffer, 2), "two");
  EXPECT_EQ(buffer.accept(), "two");
  EXPECT_THAT(buffer.history(), ElementsAre("one", "two", "three", "two"));
  buffer.clear();
  EXPECT_EQ(browsed(buffer, -1), "");
  EXPECT_EQ(browsed(buffer, 1), "two");
  EXPECT_EQ(browsed(buffer, 1), "three");
}

TEST(LineBuffer, AcceptsWhatReferencesResolveTo) {
  struct Case {
    const char* text;
    const char* run;
    const char* stored;
  };
  for (const Case& each : {Case{"get x", "get x", "get x"}, Case{"get !$", "get a", "get a"},
                           Case{"!l", "ls", "ls"}, Case{"!zz", "!zz", "zz"}, Case{"!", "!", ""}}) {
    LineBuffer buffer = bufferAfter({"ls", "cd a"});
    buffer.setText(each.text);
    EXPECT_EQ(buffer.accept(), each.run);
    EXPECT_EQ(buffer.text(), each.run);
    EXPECT_THAT(buffer.history(), ElementsAre("ls", "cd a", each.stored));
  }
}

TEST(LineBuffer, AReferenceBeyondTheHistoryThrowsAndChangesNothing) {
  LineBuffer buffer = bufferAfter({"ls"});
  buffer.setText("!-2");
  EXPECT_THROW(static_cast<void>(buffer.accept()), std::out_of_range);
  EXPECT_EQ(buffer.text(), "!-2");
  EXPECT_THAT(buffer.history(), ElementsAre("ls"));
}

TEST(CommonPrefix, IsTheLongestThatAllShare) {
  struct Case {
    Lines candidates;
    std::string common;
  };
  const std::vector<Case> cases = {
      {{}, ""},
      {{"abc"}, "abc"},
      {{"alpha", "alpine"}, "alp"},
      {{"alpine", "alpha"}, "alp"},
      {{"cat ", "cd "}, "c"},
      {{"abc", "ab", "abcd"}, "ab"},
      {{"ab", "ab"}, "ab"},
      {{"abc", "xbc"}, ""},
      {{"abc", "", "abc"}, ""},
      {{"", "abc"}, ""},
      {{"alpha", "beta", "alpine"}, ""},
      {{"xalpha", "alpha"}, ""},
      {{"a\xc3\xa9", "a\xc3\xa8"}, "a\xc3"},
      {{"\xff/", "\xff\x1b[1m"}, "\xff"},
  };
  for (const Case& each : cases) {
    EXPECT_EQ(commonPrefix(each.candidates), each.common)
        << testing::PrintToString(each.candidates);
  }
}

TEST(CommonPrefix, IsFoundAmongManyLongCandidates) {
  const std::string shared(100'000, 'x');
  Lines candidates(200, shared + "y");
  candidates.push_back(shared + "z");
  EXPECT_EQ(commonPrefix(candidates), shared);
}

}  // namespace
}  // namespace treescope
