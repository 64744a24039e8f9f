#include "term/line_editor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/captured_output.h"
#include "tests/support/editor_echo.h"
#include "tests/support/fed_input.h"
#include "tests/term/fake_shell.h"

namespace treescope {
namespace {

using test_support::CapturedOutput;
using test_support::EditorEcho;
using test_support::FedInput;
using testing::ElementsAre;

TEST(LineEditor, EchoesKeysHandsOnLinesAndEndsWithTheInput) {
  FedInput input;
  input.feed("ls\n\nx");
  input.end();
  FakeShell shell;
  CapturedOutput output;
  {
    LineEditor editor(0, false, shell.host());
    editor.showPrompt("first", nullptr);
    editor.openGate();
  }
  const EditorEcho first("first");
  const EditorEcho next("here");
  EXPECT_EQ(output.take(), first.prompt() + first.typed("ls") + "\n" + first.redrawn("", 0) +
                               next.prompt() + "\n" + next.prompt() + next.typed("x") + "\n");
  EXPECT_THAT(shell.lines, ElementsAre("ls"));
  EXPECT_TRUE(shell.ended);
}

TEST(LineEditor, TakesNoKeyBeforeTheGateOpens) {
  FedInput input;
  input.feed("early\n");
  input.end();
  FakeShell shell;
  CapturedOutput output;
  { const LineEditor editor(0, false, shell.host()); }
  EXPECT_TRUE(shell.lines.empty());
  EXPECT_FALSE(shell.ended);
  EXPECT_EQ(output.take(), "");
}

TEST(LineEditor, ReadsAndPrintsNothingInBatchMode) {
  FedInput input;
  input.feed("unread\n");
  FakeShell shell;
  CapturedOutput output;
  {
    LineEditor editor(0, true, shell.host());
    editor.openGate();
    editor.showPrompt("name", "text");
    editor.redrawLine();
    editor.moveCursor(3);
    EXPECT_EQ(editor.line(), "");
    EXPECT_EQ(editor.cursor(), 0U);
  }
  EXPECT_TRUE(shell.lines.empty());
  EXPECT_EQ(output.take(), "");
}

}  // namespace
}  // namespace treescope
