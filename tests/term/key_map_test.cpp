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

using test_support::EditorEcho;
using testing::ElementsAre;
using testing::IsEmpty;

const EditorEcho echo("here");

constexpr int control(char letter) {
  return letter & 0x1F;
}

/// What a key does to a line, and the bytes that it prints.
struct Case {
  const char* name;
  std::vector<int> codes;
  std::string line;
  std::uint32_t cursor;
  std::string lineAfter;
  std::uint32_t cursorAfter;
  std::string bytes;
};

class KeyMap : public testing::TestWithParam<Case> {};

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

const auto nameOfCase = [](const auto& test) { return test.param.name; };

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
        Case{"Home", home, "abc", 2, "abc", 0, echo.prompt("abc") + echo.redrawn("abc", 0)},
        Case{"HomeOnAnEmptyLine", home, "", 0, "", 0, echo.prompt() + echo.redrawn("", 0)},
        Case{"Left", left, "abc", 2, "abc", 1, echo.cursorAt(1)},
        Case{"LeftAtTheBeginning", left, "abc", 0, "abc", 0, ""},
        Case{"LeftPastTheEnd", left, "abc", 5, "abc", 4, echo.cursorAt(4)},
        Case{"Right", right, "abc", 1, "abc", 2, echo.cursorAt(2)},
        Case{"RightAtTheEnd", right, "abc", 3, "abc", 3, ""},
        Case{"RightPastTheEnd", right, "abc", 4, "abc", 4, ""},
        Case{"End", end, "abc", 1, "abc", 3, echo.cursorAt(3)},
        Case{"EndAtTheEnd", end, "abc", 3, "abc", 3, echo.cursorAt(3)},
        Case{"EndFromPastTheEnd", end, "abc", 5, "abc", 3, echo.cursorAt(3)},
        Case{"Insert", {KEY_IC}, "abc", 1, "abc", 1, ""}),
    nameOfCase);

INSTANTIATE_TEST_SUITE_P(
    Erasing, KeyMap,
    testing::Values(
        Case{"Backspace", backspace, "abcd", 2, "acd", 1, deletedBackward("acd", 1)},
        Case{"BackspaceAtTheEnd", backspace, "abc", 3, "ab", 2, deletedBackward("ab", 2)},
        Case{"BackspaceOfTheOnlyByte", backspace, "a", 1, "", 0, deletedBackward("", 0)},
        Case{"BackspaceAtTheBeginning", backspace, "abc", 0, "abc", 0, ""},
        Case{"BackspaceOnAnEmptyLine", backspace, "", 0, "", 0, ""},
        Case{"BackspacePastTheEndOfAnEmptyLine", backspace, "", 1, "", 1, ""},
        Case{"BackspacePastTheEnd", backspace, "abc", 5, "abc", 4, deletedBackward("abc", 4)},
        Case{"Delete", deleteKeys, "abcd", 1, "acd", 1, echo.redrawn("acd", 1)},
        Case{"DeleteAtTheBeginning", deleteKeys, "abc", 0, "bc", 0, echo.redrawn("bc", 0)},
        Case{"DeleteAtTheEnd", deleteKeys, "abc", 3, "abc", 3, ""},
        Case{"DeleteOnAnEmptyLine", deleteKeys, "", 0, "", 0, ""},
        Case{"DeletePastTheEnd", deleteKeys, "abc", 4, "abc", 4, ""},
        Case{"KillToTheEnd", {control('K')}, "abc def", 4, "abc ", 4, echo.redrawn("abc ", 4)},
        Case{"KillAtTheEnd", {control('K')}, "abc", 3, "abc", 3, echo.redrawn("abc", 3)},
        Case{"KillToTheStart", {control('W')}, "abc def", 4, "def", 0, echo.redrawn("def", 0)},
        Case{"KillToTheStartAtIt", {control('W')}, "abc", 0, "abc", 0, echo.redrawn("abc", 0)},
        Case{"KillToTheStartFromPastTheEnd", {control('W')}, "abc", 5, "", 0, echo.redrawn("", 0)}),
    nameOfCase);

INSTANTIATE_TEST_SUITE_P(BrowsingAnEmptyHistory, KeyMap,
                         testing::Values(Case{"PutsTheCursorAtTheEnd", browsing, "abc", 1, "abc", 3,
                                              echo.redrawn("abc", 3)},
                                         Case{"FromPastTheEnd", browsing, "abc", 6, "abc", 3,
                                              echo.redrawn("abc", 3)}),
                         nameOfCase);

INSTANTIATE_TEST_SUITE_P(
    Typing, KeyMap,
    testing::Values(
        Case{"AtTheBeginning", {'x'}, "abc", 0, "xabc", 1, echo.redrawn("xabc", 1)},
        Case{"InTheMiddle", {'x'}, "abc", 1, "axbc", 2, echo.redrawn("axbc", 2)},
        Case{"AtTheEnd", {'x'}, "abc", 3, "abcx", 4, echo.redrawn("abcx", 4)},
        Case{"PastTheEnd", {'x'}, "abc", 5, "abcx", 6, echo.redrawn("abcx", 6)},
        Case{"AByteAboveAscii",
             {0xC3},
             "ab",
             1,
             "a\xC3"
             "b",
             2,
             echo.redrawn("a\xC3"
                          "b",
                          2)},
        Case{"AnEscapeByte", {27}, "", 0, "\033", 1, echo.redrawn("\033", 1)},
        Case{"TheZeroByteOnlyMoves", {0}, "abc", 1, "abc", 2, echo.redrawn("abc", 2)},
        Case{"TheZeroByteMovesPastTheEnd", {0}, "abc", 3, "abc", 4, echo.redrawn("abc", 4)},
        Case{"ACodeWithoutALowByte", {0x100}, "abc", 1, "abc", 2, echo.redrawn("abc", 2)},
        Case{"ACodeOfTwoBytes", {0x4241}, "x", 0, "ABx", 1, echo.redrawn("ABx", 1)},
        Case{"TheEndOfInput",
             {-1},
             "",
             0,
             "\xFF\xFF\xFF\xFF",
             1,
             echo.redrawn("\xFF\xFF\xFF\xFF", 1)}),
    nameOfCase);

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

TEST(Keys, KillingToTheEndFromACursorPastItIsARangeError) {
  EditorFixture fixture;
  fixture.type("abc");
  fixture.press(0);
  EXPECT_EQ(fixture.press(control('K')), "\n" + echo.nextPrompt());
  EXPECT_EQ(fixture.shell.rangeErrors, 1);
  EXPECT_EQ(fixture.editor.line(), "");
  EXPECT_EQ(fixture.editor.cursor(), 0U);
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
