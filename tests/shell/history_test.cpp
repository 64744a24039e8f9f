#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/shell/recording_shell.h"
#include "tests/support/captured_output.h"
#include "tests/support/editor_echo.h"
#include "tests/support/fed_input.h"

// How references to the history are resolved, from Return to the command's handler.

namespace treescope {
namespace {

using test_support::CapturedOutput;
using test_support::EditorEcho;
using test_support::FedInput;
using testing::ElementsAre;

using Lines = std::vector<std::string>;

class TypedShell : public RecordingShell {
 public:
  TypedShell() : RecordingShell(0) {}

  /// What is printed when Return is pressed after `line`.
  std::string enter(const std::string& line) {
    lineEditor_.setLine(line);
    CapturedOutput output;
    lineEditor_.handleKey('\n');
    return output.take();
  }

  [[nodiscard]] const Lines& history() const { return lineEditor_.history(); }
  [[nodiscard]] const std::string& line() const { return lineEditor_.line(); }
};

class History : public testing::Test {
 protected:
  FedInput input_;
  CapturedOutput start_;
  TypedShell shell_;
  const std::string startBytes_ = start_.take();
  const EditorEcho echo_{" /"};
  const std::string item_ = "\033[39m\033[1G";
};

TEST_F(History, RunsAndStoresTheReferencedLine) {
  for (const char* line : {"ls", "cd a", "get !$", "!!", "!l", "!0", "!-2", "!-6"}) {
    EXPECT_EQ(shell_.enter(line), "\n" + echo_.nextPrompt()) << line;
  }
  EXPECT_EQ(shell_.calls, (Lines{"ls|0|null", "cd|a", "get|a", "get|a", "ls|0|null", "ls|0|null",
                                 "ls|0|null", "cd|a"}));
  EXPECT_EQ(shell_.history(), (Lines{"ls", "cd a", "get a", "get a", "ls", "ls", "ls", "cd a"}));
}

TEST_F(History, RunsAReferenceToNoLineAsTypedAndStoresItWithoutItsFirstCharacter) {
  const std::string error = "\n" + item_ + "ERROR: OptionError\n" + echo_.nextPrompt();
  for (const char* line : {"!!", "!5", "!zz", "!-x", "!"}) {
    EXPECT_EQ(shell_.enter(line), error) << line;
  }
  EXPECT_EQ(shell_.history(), (Lines{"!", "5", "zz", "-x", ""}));
  EXPECT_THAT(shell_.calls, ElementsAre());
}

TEST_F(History, ReportsALineTooFarBackAndContinues) {
  shell_.enter("ls");
  for (const char* line : {"!-2", "!-0", "!-99999999999999999999"}) {
    EXPECT_EQ(shell_.enter(line), "\n" + item_ + "ERROR: NotFound\n" + echo_.nextPrompt()) << line;
    EXPECT_EQ(shell_.line(), "");
  }
  EXPECT_EQ(shell_.history(), Lines{"ls"});
  EXPECT_THAT(shell_.calls, ElementsAre("ls|0|null"));
  EXPECT_EQ(shell_.enter("!-1"), "\n" + echo_.nextPrompt());
  EXPECT_THAT(shell_.calls, ElementsAre("ls|0|null", "ls|0|null"));
}

TEST_F(History, ListsEveryLineWithItsNumberAndTheCommandItself) {
  const std::string longLine = "get " + std::string(5000, 'x');
  for (const std::string& line :
       {std::string("ls"), std::string("ls"), longLine, std::string("!")}) {
    shell_.enter(line);
  }
  EXPECT_EQ(shell_.enter("history unused"), "\n" + item_ + "0 ls\n" + item_ + "1 ls\n" + item_ +
                                                "2 " + longLine + "\n" + item_ + "3 \n" + item_ +
                                                "4 history unused\n" + echo_.nextPrompt());
  EXPECT_EQ(shell_.enter("history -m"), "\n" + echo_.nextPrompt());
}

TEST(HistoryInBatchMode, IsEmpty) {
  RecordingShell shell;
  CapturedOutput output;
  EXPECT_EQ(shell.runCommandString("ls;get a;history;!!", 0), 5);
  EXPECT_EQ(output.take(), "ERROR: OptionError\n");
}

}  // namespace
}  // namespace treescope
