#include <gtest/gtest.h>

#include <ostream>

#include "tests/terminal/terminal_test.h"

// Editing the line at the prompt. In the lines of these tests "|" is the cursor.

namespace terminal_test {
namespace {

using keys::backspace;
using keys::ctrl;
using keys::left;
using keys::right;
using namespace std::string_literals;

const std::string prompt = "[ /]$ ";

struct Case {
  const char* name;
  std::string keys;
  /// The line after the prompt, once the keys have been handled.
  std::string line;

  friend void PrintTo(const Case& which, std::ostream* out) { *out << which.name; }
};

class Editing : public TerminalTest, public testing::WithParamInterface<Case> {};

// A last key shows that all keys before it have been handled, and where text is inserted.
TEST_P(Editing, ResultsInThisLineAndCursor) {
  std::string line = prompt + GetParam().line;
  line.insert(line.find('|'), "#");
  start();
  ASSERT_TRUE(type(GetParam().keys + "#"));
  EXPECT_TRUE(showsLine(line));
}

std::string nameOf(const testing::TestParamInfo<Case>& test) {
  return test.param.name;
}

INSTANTIATE_TEST_SUITE_P(
    Moving, Editing,
    testing::Values(Case{"LeftTwice", "abc" + left + left + "X", "aX|bc"},
                    Case{"LeftStopsAtTheBeginning", "ab" + left + left + left, "|ab"},
                    Case{"RightStopsAtTheEnd", "ab" + left + right + right, "ab|"},
                    Case{"HomeKey", "abc" + keys::home, "|abc"},
                    Case{"EndKey", "abc" + left + left + keys::end, "abc|"},
                    Case{"CtrlA", "abc" + ctrl('A'), "|abc"},
                    Case{"CtrlE", "abc" + ctrl('A') + ctrl('E'), "abc|"},
                    Case{"CtrlB", "abc" + ctrl('B'), "ab|c"},
                    Case{"CtrlF", "abc" + ctrl('A') + ctrl('F'), "a|bc"}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Erasing, Editing,
    testing::Values(
        Case{"Backspace", "abcd" + backspace, "abc|"},
        Case{"BackspaceInTheMiddle", "abcd" + left + left + backspace, "a|cd"},
        Case{"BackspaceAtTheBeginningDoesNothing", "ab" + ctrl('A') + backspace, "|ab"},
        Case{"BackspaceOnAnEmptyLineDoesNothing", backspace, "|"},
        Case{"CtrlH", "abcd" + ctrl('H'), "abc|"},
        Case{"DeleteKey", "abcd" + ctrl('A') + keys::del, "|bcd"},
        Case{"CtrlD", "abcd" + left + left + ctrl('D'), "ab|d"},
        Case{"DeleteAtTheEndDoesNothing", "ab" + keys::del, "ab|"},
        Case{"CtrlDOnAnEmptyLineDoesNothing", ctrl('D'), "|"},
        Case{"CtrlWBeforeTheCursor", "abc def" + left + left + left + ctrl('W'), "|def"},
        Case{"CtrlWAtTheEndErasesMoreThanAWord", "abc def" + ctrl('W'), "|"},
        Case{"CtrlKAfterTheCursor", "abc def" + left + left + left + ctrl('K'), "abc |"},
        Case{"CtrlKAtTheEndDoesNothing", "abc" + ctrl('K'), "abc|"}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(EscapeSequences, Editing,
                         testing::Values(Case{"InsertKeyIsPartlyText", keys::insert, "2~|"},
                                         Case{"EscapeIsDropped", "\033x"s, "x|"},
                                         Case{"AnotherHomeKeyIsPartlyText", "a\033[H"s, "aH|"},
                                         Case{"AnotherEndKeyIsPartlyText", "a\033[F"s, "aF|"},
                                         Case{"ApplicationKeysArePartlyText", "a\033OA"s, "aOA|"},
                                         Case{"AnIncompleteSequenceIsDropped", "\033[1x"s, "x|"},
                                         Case{"BracketsAndTildesAreText", "[1~[A"s, "[1~[A|"}),
                         nameOf);

using EditingTerminal = TerminalTest;

TEST_F(EditingTerminal, WritesNothingForKeysThatDoNothing) {
  start();
  ASSERT_TRUE(type("x"));
  ASSERT_TRUE(showsLine("[ /]$ x|"));
  const std::size_t mark = shell().mark();
  ASSERT_TRUE(type(keys::del + right + ctrl('D') + ctrl('F') + "y"));
  ASSERT_TRUE(showsLine("[ /]$ xy|"));
  EXPECT_EQ(shell().bytesSince(mark), "\033[7Gxy\033[0K\033[9G");
}

TEST_F(EditingTerminal, WritesNothingForABackspaceWithNothingToDelete) {
  start();
  const std::size_t mark = shell().mark();
  ASSERT_TRUE(type(backspace + ctrl('H') + "y"));
  ASSERT_TRUE(showsLine("[ /]$ y|"));
  EXPECT_EQ(shell().bytesSince(mark), "\033[7Gy\033[0K\033[8G");
}

TEST_F(EditingTerminal, DrawsTheWholeLineAtEachBackspace) {
  start();
  ASSERT_TRUE(type("ab"));
  ASSERT_TRUE(showsLine("[ /]$ ab|"));
  const std::size_t mark = shell().mark();
  ASSERT_TRUE(type(backspace));
  ASSERT_TRUE(showsLine("[ /]$ a|"));
  ASSERT_TRUE(shell().writes("\033[8G\033[7Ga\033[0K\033[8G", mark));
  EXPECT_EQ(shell().bytesSince(mark),
            "\033[2K\033[0G[ /]$ \033[7Ga\033[0K\033[8G\033[7Ga\033[0K\033[8G");
}

TEST_F(EditingTerminal, PromptsOnTheNextLineAfterAnEmptyReturn) {
  start();
  ASSERT_TRUE(type(keys::returnKey + keys::returnKey + "x"));
  EXPECT_TRUE(
      showsScreen("[ /]$\n"
                  "[ /]$\n"
                  "[ /]$ x\n"));
}

TEST_F(EditingTerminal, RunsTheWholeLineWhereverTheCursorIs) {
  start();
  ASSERT_TRUE(type("wd" + keys::home + "p" + keys::returnKey));
  EXPECT_TRUE(
      showsScreen("[ /]$ pwd\n"
                  "/\n"
                  "[ /]$\n"));
}

TEST_F(EditingTerminal, MovesPastTheEndAtANullKey) {
  start();
  ASSERT_TRUE(type("ab\0"s));
  EXPECT_TRUE(showsLine("[ /]$ ab |"));
}

TEST_F(EditingTerminal, HandlesTextAndErasurePastTheEnd) {
  start();
  ASSERT_TRUE(type("ab\0\0"s + ctrl('K')));
  EXPECT_TRUE(
      showsScreen("[ /]$ ab\n"
                  "ERROR: NotFound\n"
                  "[ /]$ ab\n"));
  ASSERT_TRUE(type(ctrl('W') + "cd\0\0"s + backspace + backspace + backspace + "#"));
  EXPECT_TRUE(showsLine("[ /]$ c#|"));
}

TEST_F(EditingTerminal, AcceptsBytesThatAreNotText) {
  start();
  ASSERT_TRUE(type("\x80\xff\xfe\x01pwd;"));
  ASSERT_TRUE(type(keys::returnKey));
  EXPECT_TRUE(showsText("/"));
  ASSERT_TRUE(run("pwd"));
}

// The terminal understands UTF-8, the editor counts bytes.
TEST_F(EditingTerminal, PlacesTheCursorOneColumnTooFarForALetterOfTwoBytes) {
  start();
  ASSERT_TRUE(type("gr\u00fcn"));
  EXPECT_TRUE(showsLine("[ /]$ gr\u00fcn |"));
}

TEST_F(EditingTerminal, KeepsALineLongerThanTheScreenIsWide) {
  start();
  const std::string longLine = "pwd" + std::string(300, ' ') + ";pwd";
  ASSERT_TRUE(run(longLine));
  EXPECT_TRUE(shell().waitFor(
      [](const Screen& screen) {
        return screen.text().find("\n/\n/\n[ /]$\n") != std::string::npos;
      },
      "the output of both commands"));
}

TEST_F(EditingTerminal, ShowsAKeyBeforeTheNextOneIsTyped) {
  start();
  std::string typed;
  for (const char key : "history"s) {
    ASSERT_TRUE(type(std::string(1, key)));
    typed += key;
    ASSERT_TRUE(showsLine("[ /]$ " + typed + "|"));
  }
}

}  // namespace
}  // namespace terminal_test
