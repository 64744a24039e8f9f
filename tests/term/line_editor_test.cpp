#include "term/line_editor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "tests/support/captured_output.h"
#include "tests/support/fed_input.h"

namespace treescope {
namespace {

using test_support::CapturedOutput;
using test_support::FedInput;
using testing::ElementsAre;

/// A shell that notes what it is handed. Its notes may be read when the editor is
/// gone.
struct Listener {
  LineEditorHost host() {
    return {[] { return std::string("here"); },
            [this](const char* line) {
              lines.emplace_back(line);
              return lines.back() != "bye";
            },
            [this] { ended = true; }};
  }

  std::vector<std::string> lines;
  std::atomic<bool> ended{false};
};

TEST(LineEditor, HandsOnLinesAndKeepsThemAsHistory) {
  FedInput input;
  input.feed("one\n\ntwo words\nlast");
  input.end();
  Listener listener;
  std::vector<std::string> history;
  CapturedOutput output;
  {
    LineEditor editor(0, false,
                      {[] { return std::string("here"); }, listener.host().runLine,
                       [&] {
                         history = editor.history();
                         listener.ended = true;
                       }});
    editor.showPrompt("first", nullptr);
    editor.openGate();
  }
  EXPECT_EQ(output.take(), "[first]$ [here]$ [here]$ [here]$ [here]$ \n");
  EXPECT_THAT(listener.lines, ElementsAre("one", "two words", "last"));
  EXPECT_THAT(history, ElementsAre("one", "two words", "last"));
  EXPECT_TRUE(listener.ended);
}

TEST(LineEditor, TakesNoLineBeforeTheGateOpens) {
  FedInput input;
  input.feed("early\n");
  input.end();
  Listener listener;
  CapturedOutput output;
  { const LineEditor editor(0, false, listener.host()); }
  EXPECT_TRUE(listener.lines.empty());
  EXPECT_FALSE(listener.ended);
  EXPECT_EQ(output.take(), "");
}

TEST(LineEditor, EndsWithTheLineThatEndsTheShell) {
  FedInput input;
  input.feed("bye\nlate\n");
  Listener listener;
  CapturedOutput output;
  {
    LineEditor editor(0, false, listener.host());
    editor.openGate();
  }
  EXPECT_THAT(listener.lines, ElementsAre("bye"));
  EXPECT_FALSE(listener.ended);
  EXPECT_EQ(output.take(), "");
}

TEST(LineEditor, TakesLongLinesAndLeavesZeroBytesOut) {
  FedInput input;
  const std::string longLine(50'000, 'l');
  input.feed(longLine + "\n" + std::string("a\0b\xff\033[A", 7) + "\n");
  input.end();
  Listener listener;
  CapturedOutput output;
  {
    LineEditor editor(0, false, listener.host());
    editor.openGate();
  }
  EXPECT_THAT(listener.lines, ElementsAre(longLine, "ab\xff\033[A"));
}

TEST(LineEditor, ReadsAndPrintsNothingInBatchMode) {
  FedInput input;
  input.feed("unread\n");
  Listener listener;
  CapturedOutput output;
  {
    LineEditor editor(0, true, listener.host());
    editor.openGate();
    editor.showPrompt("name", "text");
  }
  EXPECT_TRUE(listener.lines.empty());
  EXPECT_EQ(output.take(), "");
}

}  // namespace
}  // namespace treescope
