#include "term/line_editor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/fed_input.h"
#include "tests/term/editor_fixture.h"

namespace treescope {
namespace {

using test_support::EditorEcho;
using testing::ElementsAre;

TEST(LineEditor, ShowsAPromptAndTheLineAfterIt) {
  EditorFixture fixture;
  const EditorEcho other("other name");
  EXPECT_EQ(fixture.outputOf([&] { fixture.editor.showPrompt("other name", "text"); }),
            other.prompt("text"));
  EXPECT_EQ(fixture.editor.line(), "text");
  EXPECT_EQ(fixture.editor.cursor(), 4U);
  EXPECT_EQ(fixture.editor.textColumn(), 15);
}

TEST(LineEditor, KeepsTheLineAtANewPrompt) {
  EditorFixture fixture;
  fixture.start("text", 1);
  EXPECT_EQ(fixture.outputOf([&] { fixture.editor.showPrompt("here", nullptr); }),
            echo.prompt("text"));
  EXPECT_EQ(fixture.editor.cursor(), 4U);
}

TEST(LineEditor, MovesTheCursorEachWay) {
  struct Case {
    int how;
    std::size_t cursorAfter;
  };
  for (const Case& each : {Case{0, 2}, Case{1, 0}, Case{2, 4}, Case{3, 3}, Case{4, 1}, Case{5, 0},
                           Case{6, 4}, Case{7, 2}, Case{-1, 2}}) {
    EditorFixture fixture;
    fixture.start("text", 2);
    EXPECT_EQ(fixture.outputOf([&] { fixture.editor.moveCursor(each.how); }),
              echo.cursorAt(each.cursorAfter))
        << each.how;
    EXPECT_EQ(fixture.editor.cursor(), each.cursorAfter) << each.how;
  }
}

TEST(LineEditor, TheCursorStopsAtTheStartOnly) {
  EditorFixture fixture;
  EXPECT_EQ(fixture.outputOf([&] { fixture.editor.moveCursor(4); }), echo.cursorAt(0));
  EXPECT_EQ(fixture.outputOf([&] { fixture.editor.moveCursor(3); }), echo.cursorAt(1));
}

TEST(LineEditor, RedrawsTheLineWithoutMovingTheCursorBack) {
  EditorFixture fixture;
  fixture.start("text", 2);
  EXPECT_EQ(fixture.outputOf([&] { fixture.editor.redrawLine(); }), "\033[9Gtext\033[0K");
  EXPECT_EQ(fixture.editor.cursor(), 2U);
}

TEST(LineEditor, ClearsTheLine) {
  EditorFixture fixture;
  fixture.start("text", 2);
  EXPECT_EQ(fixture.outputOf([&] { fixture.editor.clearLine(); }), echo.redrawn("", 0));
  EXPECT_EQ(fixture.editor.line(), "");
}

TEST(LineEditor, KillsOnEitherSideOfTheCursor) {
  EditorFixture fixture;
  fixture.start("abc def", 4);
  EXPECT_EQ(fixture.outputOf([&] { fixture.editor.killLine(true); }), echo.redrawn("abc ", 4));
  fixture.start("abc def", 4);
  EXPECT_EQ(fixture.outputOf([&] { fixture.editor.killLine(false); }), echo.redrawn("def", 0));
}

TEST(LineEditor, KillingPastTheEndThrows) {
  EditorFixture fixture;
  fixture.start("abc", 4);
  EXPECT_THROW(fixture.editor.killLine(true), std::out_of_range);
  EXPECT_EQ(fixture.editor.line(), "abc");
}

TEST(LineEditor, SetsALineWithoutDrawingIt) {
  EditorFixture fixture;
  fixture.start("abc", 2);
  EXPECT_EQ(fixture.outputOf([&] { fixture.editor.setLine("ls "); }), "");
  EXPECT_EQ(fixture.editor.line(), "ls ");
  EXPECT_EQ(fixture.editor.cursor(), 2U);
}

struct Replacement {
  const char* line;
  const char* word;
  const char* after;
};

class LastWord : public testing::TestWithParam<Replacement> {};

TEST_P(LastWord, IsReplaced) {
  EditorFixture fixture;
  fixture.start(GetParam().line, 1);
  const std::string after = GetParam().after;
  EXPECT_EQ(fixture.outputOf([&] { fixture.editor.replaceLastWord(GetParam().word); }),
            echo.redrawn(after, after.size()));
  EXPECT_EQ(fixture.editor.line(), after);
}

INSTANTIATE_TEST_SUITE_P(Lines, LastWord,
                         testing::Values(Replacement{"cd a/b/na", "name/", "cd a/b/name/"},
                                         Replacement{"get /x/a", "abc", "get /x/abc"},
                                         Replacement{"cd ..", "../", "cd ../"},
                                         Replacement{"cd ", "Model_a", "cd Model_a"},
                                         Replacement{"/a b/c d", "e", "/a b/c e"},
                                         Replacement{"cd a/b c", "", "cd a/b "},
                                         Replacement{"a/", "", "a/"}, Replacement{"/", "a", "/a"}));

TEST(LineEditor, ALineOfOneWordHasNoLastWordToReplace) {
  for (const char* const line : {"", "c", "noslash"}) {
    EditorFixture fixture;
    fixture.start(line, 1);
    EXPECT_EQ(fixture.outputOf([&] { fixture.editor.replaceLastWord("word"); }), "");
    EXPECT_EQ(fixture.editor.line(), line);
    EXPECT_EQ(fixture.editor.cursor(), 1U);
  }
}

TEST(LineEditor, BrowsesAsManyStepsAsThereAreLines) {
  EditorFixture fixture;
  fixture.type("a\nb\nc\n");
  EXPECT_EQ(fixture.outputOf([&] { fixture.editor.historyBack(2); }), echo.redrawn("b", 1));
  EXPECT_EQ(fixture.outputOf([&] { fixture.editor.historyBack(255); }), echo.redrawn("a", 1));
  EXPECT_EQ(fixture.outputOf([&] { fixture.editor.historyForward(0); }), echo.redrawn("a", 1));
  EXPECT_EQ(fixture.outputOf([&] { fixture.editor.historyForward(255); }), echo.redrawn("", 0));
}

TEST(LineEditor, ACompletionMayChangeTheLine) {
  FakeShell shell;
  LineEditorHost host = shell.host();
  LineEditor* completed = nullptr;
  host.runLine = [&](const char* line) {
    shell.lines.emplace_back(line);
    completed->showPrompt("here", nullptr);
    completed->replaceLastWord("abc");
    return true;
  };
  LineEditor editor(0, false, host);
  completed = &editor;
  const std::string bytes = EditorFixture::outputOf([&] {
    editor.showPrompt("here", "get /a");
    editor.handleKey('\t');
  });
  EXPECT_EQ(bytes,
            echo.prompt("get /a") + "\n" + echo.prompt("get /a") + echo.redrawn("get /abc", 8));
  EXPECT_THAT(shell.lines, ElementsAre("tab get /a"));
}

std::ptrdiff_t threadsOfThisProcess() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

TEST(LineEditor, HasNoThreadInBatchModeAndLeavesTheInputUnread) {
  test_support::FedInput input;
  input.feed("keys");
  FakeShell shell;
  {
    const std::ptrdiff_t before = threadsOfThisProcess();
    LineEditor editor(0, true, shell.host());
    editor.startReading();
    EXPECT_LE(threadsOfThisProcess(), before);
  }
  std::array<char, 8> rest{};
  EXPECT_EQ(read(STDIN_FILENO, rest.data(), rest.size()), 4);
  EXPECT_STREQ(rest.data(), "keys");
  EXPECT_THAT(shell.lines, testing::IsEmpty());
}

TEST(LineEditor, PrintsAndReadsNothingInBatchMode) {
  FakeShell shell;
  LineEditor editor(7, true, shell.host());
  editor.startReading();
  EXPECT_EQ(EditorFixture::outputOf([&] {
              editor.showPrompt("name", "text");
              editor.redrawLine();
              editor.moveCursor(3);
              editor.clearLine();
            }),
            "");
  EXPECT_EQ(editor.line(), "");
  EXPECT_EQ(editor.cursor(), 0U);
  EXPECT_EQ(editor.owner(), 7);
  EXPECT_TRUE(editor.batch());
}

}  // namespace
}  // namespace treescope
