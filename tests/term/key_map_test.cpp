#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "term/key_decoder.h"
#include "tests/term/editor_fixture.h"

namespace treescope {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int control(char letter) {
  return letter & 0x1F;
}

/// What a key does to a line, and the bytes that it prints.
struct KeyCase {
  const char* name;
  std::vector<int> codes;
  std::string line;
  std::uint32_t cursor;
  std::string lineAfter;
  std::uint32_t cursorAfter;
  std::string bytes;
};

class KeyMap : public testing::TestWithParam<KeyCase> {};

TEST_P(KeyMap, EditsAndPrints) {
  for (const int code : GetParam().codes) {
    EditorFixture fixture;
    fixture.start(GetParam().line, GetParam().cursor);
    EXPECT_EQ(fixture.press(code), GetParam().bytes) << code;
    EXPECT_EQ(fixture.editor.line(), GetParam().lineAfter) << code;
    EXPECT_EQ(fixture.editor.cursor(), GetParam().cursorAfter) << code;
    EXPECT_THAT(fixture.shell.lines, IsEmpty()) << code;
    EXPECT_EQ(fixture.shell.rangeErrors, 0) << code;
  }
}

const auto nameOfKeyCase = [](const auto& test) { return test.param.name; };

std::string deletedBackward(const std::string& line, std::size_t cursor) {
  return "\033[2K" + echo.prompt(line) + echo.redrawn(line, cursor);
}

const std::vector<int> backspace{127, control('H'), KEY_BACKSPACE};
const std::vector<int> home{control('A'), KEY_HOME};
const std::vector<int> left{control('B'), KEY_LEFT};
const std::vector<int> right{control('F'), KEY_RIGHT};
const std::vector<int> end{control('E'), KEY_END};
const std::vector<int> deleteKeys{control('D'), KEY_DC};
const std::vector<int> browsing{control('P'), KEY_UP, KEY_PPAGE, control('N'), KEY_DOWN, KEY_NPAGE};

INSTANTIATE_TEST_SUITE_P(
    Moving, KeyMap,
    testing::Values(
        KeyCase{"Home", home, "abc", 2, "abc", 0, echo.prompt("abc") + echo.redrawn("abc", 0)},
        KeyCase{"HomeOnAnEmptyLine", home, "", 0, "", 0, echo.prompt() + echo.redrawn("", 0)},
        KeyCase{"Left", left, "abc", 2, "abc", 1, echo.cursorAt(1)},
        KeyCase{"LeftAtTheBeginning", left, "abc", 0, "abc", 0, ""},
        KeyCase{"LeftPastTheEnd", left, "abc", 5, "abc", 4, echo.cursorAt(4)},
        KeyCase{"Right", right, "abc", 1, "abc", 2, echo.cursorAt(2)},
        KeyCase{"RightAtTheEnd", right, "abc", 3, "abc", 3, ""},
        KeyCase{"RightPastTheEnd", right, "abc", 4, "abc", 4, ""},
        KeyCase{"End", end, "abc", 1, "abc", 3, echo.cursorAt(3)},
        KeyCase{"EndAtTheEnd", end, "abc", 3, "abc", 3, echo.cursorAt(3)},
        KeyCase{"EndFromPastTheEnd", end, "abc", 5, "abc", 3, echo.cursorAt(3)},
        KeyCase{"Insert", {KEY_IC}, "abc", 1, "abc", 1, ""}),
    nameOfKeyCase);

INSTANTIATE_TEST_SUITE_P(
    Erasing, KeyMap,
    testing::Values(
        KeyCase{"Backspace", backspace, "abcd", 2, "acd", 1, deletedBackward("acd", 1)},
        KeyCase{"BackspaceAtTheEnd", backspace, "abc", 3, "ab", 2, deletedBackward("ab", 2)},
        KeyCase{"BackspaceOfTheOnlyByte", backspace, "a", 1, "", 0, deletedBackward("", 0)},
        KeyCase{"BackspaceAtTheBeginning", backspace, "abc", 0, "abc", 0, ""},
        KeyCase{"BackspaceOnAnEmptyLine", backspace, "", 0, "", 0, ""},
        KeyCase{"BackspacePastTheEndOfAnEmptyLine", backspace, "", 1, "", 1, ""},
        KeyCase{"BackspacePastTheEnd", backspace, "abc", 5, "abc", 4, deletedBackward("abc", 4)},
        KeyCase{"Delete", deleteKeys, "abcd", 1, "acd", 1, echo.redrawn("acd", 1)},
        KeyCase{"DeleteAtTheBeginning", deleteKeys, "abc", 0, "bc", 0, echo.redrawn("bc", 0)},
        KeyCase{"DeleteAtTheEnd", deleteKeys, "abc", 3, "abc", 3, ""},
        KeyCase{"DeleteOnAnEmptyLine", deleteKeys, "", 0, "", 0, ""},
        KeyCase{"DeletePastTheEnd", deleteKeys, "abc", 4, "abc", 4, ""},
        KeyCase{"KillToTheEnd", {control('K')}, "abc def", 4, "abc ", 4, echo.redrawn("abc ", 4)},
        KeyCase{"KillAtTheEnd", {control('K')}, "abc", 3, "abc", 3, echo.redrawn("abc", 3)},
        KeyCase{"KillToTheStart", {control('W')}, "abc def", 4, "def", 0, echo.redrawn("def", 0)},
        KeyCase{"KillToTheStartAtIt", {control('W')}, "abc", 0, "abc", 0, echo.redrawn("abc", 0)},
        KeyCase{
            "KillToTheStartFromPastTheEnd", {control('W')}, "abc", 5, "", 0, echo.redrawn("", 0)}),
    nameOfKeyCase);

INSTANTIATE_TEST_SUITE_P(BrowsingAnEmptyHistory, KeyMap,
                         testing::Values(KeyCase{"PutsTheCursorAtTheEnd", browsing, "abc", 1, "abc",
                                                 3, echo.redrawn("abc", 3)},
                                         KeyCase{"FromPastTheEnd", browsing, "abc", 6, "abc", 3,
                                                 echo.redrawn("abc", 3)}),
                         nameOfKeyCase);

INSTANTIATE_TEST_SUITE_P(
    Typing, KeyMap,
    testing::Values(
        KeyCase{"AtTheBeginning", {'x'}, "abc", 0, "xabc", 1, echo.redrawn("xabc", 1)},
        KeyCase{"InTheMiddle", {'x'}, "abc", 1, "axbc", 2, echo.redrawn("axbc", 2)},
        KeyCase{"AtTheEnd", {'x'}, "abc", 3, "abcx", 4, echo.redrawn("abcx", 4)},
        KeyCase{"PastTheEnd", {'x'}, "abc", 5, "abcx", 6, echo.redrawn("abcx", 6)},
        KeyCase{"AByteAboveAscii",
                {0xC3},
                "ab",
                1,
                "a\xC3"
                "b",
                2,
                echo.redrawn("a\xC3"
                             "b",
                             2)},
        KeyCase{"AnEscapeByte", {27}, "", 0, "\033", 1, echo.redrawn("\033", 1)},
        KeyCase{"TheZeroByteOnlyMoves", {0}, "abc", 1, "abc", 2, echo.redrawn("abc", 2)},
        KeyCase{"TheZeroByteMovesPastTheEnd", {0}, "abc", 3, "abc", 4, echo.redrawn("abc", 4)},
        KeyCase{"ACodeWithoutALowByte", {0x100}, "abc", 1, "abc", 2, echo.redrawn("abc", 2)},
        KeyCase{"ACodeOfTwoBytes", {0x4241}, "x", 0, "ABx", 1, echo.redrawn("ABx", 1)},
        KeyCase{"TheEndOfInput",
                {-1},
                "",
                0,
                "\xFF\xFF\xFF\xFF",
                1,
                echo.redrawn("\xFF\xFF\xFF\xFF", 1)}),
    nameOfKeyCase);

TEST(Keys, EveryOtherByteIsText) {
  const std::set<int> mapped{127, 8, 1, 2, 6, 5, 4, 11, 23, 16, 14, 9, 10};
  for (int code = 1; code < 256; ++code) {
    if (mapped.count(code) == 0) {
      EditorFixture fixture;
      fixture.start("ab", 1);
      const std::string line = std::string("a") + static_cast<char>(code) + "b";
      EXPECT_EQ(fixture.press(code), echo.redrawn(line, 2)) << code;
      EXPECT_EQ(fixture.editor.line(), line);
    }
  }
}

TEST(Keys, TextIsInsertedAtTheCursor) {
  EditorFixture fixture;
  EXPECT_EQ(fixture.type("abc"), echo.typed("abc"));
  EXPECT_EQ(fixture.press(KEY_LEFT), echo.cursorAt(2));
  EXPECT_EQ(fixture.press(KEY_LEFT), echo.cursorAt(1));
  EXPECT_EQ(fixture.press('X'), echo.redrawn("aXbc", 2));
}

TEST(Keys, ReturnRunsTheLineAndShowsAnEmptyOne) {
  for (const int code : {10, static_cast<int>(KEY_ENTER)}) {
    EditorFixture fixture;
    fixture.start("get x", 2);
    EXPECT_EQ(fixture.press(code), "\n" + echo.nextPrompt());
    EXPECT_THAT(fixture.shell.lines, ElementsAre("get x"));
    EXPECT_THAT(fixture.editor.history(), ElementsAre("get x"));
    EXPECT_EQ(fixture.editor.line(), "");
    EXPECT_EQ(fixture.editor.cursor(), 0U);
  }
}

TEST(Keys, ReturnOnAnEmptyLineRunsAndKeepsNothing) {
  EditorFixture fixture;
  EXPECT_EQ(fixture.type("\n"), "\n" + echo.prompt());
  EXPECT_THAT(fixture.shell.lines, IsEmpty());
  EXPECT_THAT(fixture.editor.history(), IsEmpty());
}

TEST(Keys, ReturnShowsNoPromptWhenTheShellEnds) {
  EditorFixture fixture;
  fixture.start("bye", 1);
  EXPECT_EQ(fixture.type("\n"), "\n");
  EXPECT_EQ(fixture.editor.line(), "bye");
  EXPECT_THAT(fixture.editor.history(), ElementsAre("bye"));
}

TEST(Keys, ReturnResolvesReferencesToTheHistory) {
  EditorFixture fixture;
  fixture.type("ls\ncd a\nget !$\n!!\n!0\n!l\n!-2\n!zz\n!\n");
  EXPECT_THAT(fixture.shell.lines,
              ElementsAre("ls", "cd a", "get a", "get a", "ls", "ls", "ls", "!zz", "!"));
  EXPECT_THAT(fixture.editor.history(),
              ElementsAre("ls", "cd a", "get a", "get a", "ls", "ls", "ls", "zz", ""));
}

TEST(Keys, AReferenceBeyondTheHistoryIsARangeError) {
  EditorFixture fixture;
  fixture.type("ls\n!-2");
  EXPECT_EQ(fixture.press(10), "\n" + echo.nextPrompt());
  EXPECT_EQ(fixture.shell.rangeErrors, 1);
  EXPECT_THAT(fixture.shell.lines, ElementsAre("ls"));
  EXPECT_THAT(fixture.editor.history(), ElementsAre("ls"));
  EXPECT_EQ(fixture.editor.line(), "");
  fixture.type("pwd\n");
  EXPECT_THAT(fixture.shell.lines, ElementsAre("ls", "pwd"));
}

TEST(Keys, KillingToTheEndFromACursorPastItIsARangeErrorAndKeepsTheLine) {
  EditorFixture fixture;
  fixture.type("abc");
  fixture.press(0);
  EXPECT_EQ(fixture.press(control('K')), "\n" + echo.prompt("abc"));
  EXPECT_EQ(fixture.shell.rangeErrors, 1);
  EXPECT_EQ(fixture.editor.line(), "abc");
  EXPECT_EQ(fixture.editor.cursor(), 3U);
}

TEST(Keys, TabRequestsACompletionOfTheLineWithoutLeadingSpaces) {
  for (const auto& [line, request] :
       {std::pair{"get x", "tab get x"}, std::pair{"  ls ", "tab ls "}, std::pair{"   ", "tab "},
        std::pair{"", "tab "}}) {
    EditorFixture fixture;
    fixture.start(line, 1);
    EXPECT_EQ(fixture.press(9), "\n");
    EXPECT_THAT(fixture.shell.lines, ElementsAre(request));
    EXPECT_EQ(fixture.editor.line(), line);
    EXPECT_EQ(fixture.editor.cursor(), 1U);
    EXPECT_THAT(fixture.editor.history(), IsEmpty());
  }
}

TEST(Keys, UpAndDownBrowseTheHistoryAndKeepWhatWasTyped) {
  EditorFixture fixture;
  fixture.type("first\nsecond\ntyped");
  EXPECT_EQ(fixture.press(KEY_UP), echo.redrawn("second", 6));
  EXPECT_EQ(fixture.press(control('P')), echo.redrawn("first", 5));
  EXPECT_EQ(fixture.press(KEY_UP), echo.redrawn("first", 5));
  EXPECT_EQ(fixture.press(KEY_DOWN), echo.redrawn("second", 6));
  EXPECT_EQ(fixture.press(control('N')), echo.redrawn("typed", 5));
  EXPECT_EQ(fixture.press(KEY_DOWN), echo.redrawn("typed", 5));
}

TEST(Keys, ALineEditedWhileBrowsingIsKept) {
  EditorFixture fixture;
  fixture.type("one\ntwo\n");
  fixture.press(KEY_UP);
  fixture.type("!");
  EXPECT_EQ(fixture.press(KEY_UP), echo.redrawn("one", 3));
  EXPECT_EQ(fixture.press(KEY_DOWN), echo.redrawn("two!", 4));
  EXPECT_THAT(fixture.editor.history(), ElementsAre("one", "two"));
}

TEST(Keys, ReturnEndsBrowsing) {
  EditorFixture fixture;
  fixture.type("one\ntwo\nthree\n");
  fixture.press(KEY_UP);
  fixture.press(KEY_UP);
  fixture.type("\n");
  EXPECT_THAT(fixture.editor.history(), ElementsAre("one", "two", "three", "two"));
  EXPECT_EQ(fixture.press(KEY_DOWN), echo.redrawn("", 0));
  EXPECT_EQ(fixture.press(KEY_UP), echo.redrawn("two", 3));
  EXPECT_EQ(fixture.press(KEY_UP), echo.redrawn("three", 5));
}

TEST(Keys, PageKeysBrowseTenLines) {
  EditorFixture fixture;
  for (int line = 0; line < 15; ++line) {
    fixture.type(std::to_string(line) + "\n");
  }
  EXPECT_EQ(fixture.press(KEY_PPAGE), echo.redrawn("5", 1));
  EXPECT_EQ(fixture.press(KEY_PPAGE), echo.redrawn("0", 1));
  EXPECT_EQ(fixture.press(KEY_NPAGE), echo.redrawn("10", 2));
  EXPECT_EQ(fixture.press(KEY_NPAGE), echo.redrawn("", 0));
}

TEST(Keys, AKeyThatRunsOutOfMemoryLeavesAnEmptyLine) {
  FakeShell shell;
  LineEditorHost host = shell.host();
  bool full = false;
  host.promptText = [&full] { return full ? throw std::bad_alloc() : std::string("here"); };
  host.outOfMemory = [&] {
    ++shell.timesOutOfMemory;
    full = false;
  };
  LineEditor editor(0, false, host);
  const std::string bytes = EditorFixture::outputOf([&] {
    editor.showPrompt("here", "abc");
    full = true;
    editor.handleKey(KEY_HOME);
  });
  EXPECT_EQ(bytes, echo.prompt("abc") + "\n" + echo.nextPrompt());
  EXPECT_EQ(shell.timesOutOfMemory, 1);
  EXPECT_EQ(editor.line(), "");
}

TEST(Keys, TheNextKeyWorksAfterRecoveryRanOutOfMemoryToo) {
  for (const bool forTheMessage : {false, true}) {
    FakeShell shell;
    LineEditorHost host = shell.host();
    host.promptText = []() -> std::string { throw std::length_error("prompt"); };
    host.outOfMemory = [forTheMessage] {
      if (forTheMessage) {
        throw std::bad_alloc();
      }
    };
    LineEditor editor(0, false, host);
    EditorFixture::outputOf([&] {
      editor.showPrompt("here", "abc");
      editor.handleKey(KEY_HOME);
    });
    EXPECT_EQ(editor.line(), "");
    EXPECT_EQ(EditorFixture::outputOf([&] { editor.handleKey('x'); }), echo.redrawn("x", 1));
  }
}

}  // namespace
}  // namespace treescope
