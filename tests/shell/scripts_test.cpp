#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "tests/shell/recording_shell.h"
#include "tests/shell/script_file.h"
#include "tests/support/captured_output.h"
#include "tests/support/editor_echo.h"
#include "tests/support/fed_input.h"

namespace treescope {
namespace {

using test_support::CapturedOutput;
using test_support::EditorEcho;
using test_support::FedInput;
using testing::ElementsAre;

class Scripts : public testing::Test {
 protected:
  int runFile(const std::string& contents) {
    const ScriptFile file(contents);
    return shell.runCommandFile(file.name());
  }

  CapturedOutput output;
  RecordingShell shell;
};

TEST_F(Scripts, LineRunsItsCommandsUntilOneFails) {
  EXPECT_EQ(shell.runLine("set 1 /a;get /a;;cd"), 1);
  EXPECT_EQ(shell.runLine("bad;get /b"), 5);
  EXPECT_EQ(shell.runLine("exit; ls"), 11);
  EXPECT_EQ(shell.runLine(""), 1);
  EXPECT_THAT(shell.calls, ElementsAre("set|0|1|/a", "get|/a", "cd|null", "exit"));
  EXPECT_EQ(output.take(), "ERROR: OptionError\n");
}

TEST_F(Scripts, LineContinuesAfterNothingToReport) {
  shell.code = 3;
  EXPECT_EQ(shell.runLine("get a;get b"), 1);
  EXPECT_THAT(shell.calls, ElementsAre("get|a", "get|b"));
}

TEST_F(Scripts, TypedLineKeepsTheSpaceBeforeASystemCommand) {
  EXPECT_EQ(shell.runLine("pwd; $ls"), 5);
  EXPECT_EQ(output.take(), "/\nERROR: OptionError\n");
}

TEST_F(Scripts, StringTrimsTheSpaceBeforeASystemCommand) {
  EXPECT_EQ(shell.runCommandString("pwd; $echo yes", 0), 1);
  EXPECT_EQ(output.take(), "/\nyes\n");
}

TEST_F(Scripts, StringReturnsItsLastResult) {
  EXPECT_EQ(shell.runCommandString("", 0), 3);
  EXPECT_EQ(shell.runCommandString("   ", 1), 3);
  EXPECT_EQ(shell.runCommandString(";", 0), 1);
  EXPECT_EQ(shell.runCommandString("cd x; ls ;  ", 0), 1);
  EXPECT_EQ(shell.runCommandString("get -r; ls", 0), 5);
  EXPECT_EQ(shell.runCommandString("exit; ls", 0), 11);
  EXPECT_THAT(shell.calls, ElementsAre("cd|x", "ls|0|null", "exit"));
  EXPECT_EQ(shell.isRunning(), 0);
}

TEST_F(Scripts, UnquotingRemovesOnlyTheOpeningQuote) {
  EXPECT_EQ(shell.runCommandString("  \"set 1 /a\"", 1), 1);
  EXPECT_EQ(shell.runCommandString("\"\"get x", 1), 3);
  EXPECT_EQ(shell.runCommandString("\"", 1), 3);
  EXPECT_EQ(shell.runCommandString("\"get\" x", 0), 1);
  EXPECT_THAT(shell.calls, ElementsAre("set|0|1|/a\"", "get|x"));
  shell.calls.clear();
  EXPECT_EQ(runFile("\"set 1 /a\""), 1);
  EXPECT_THAT(shell.calls, ElementsAre("set|0|1|/a\""));
}

TEST_F(Scripts, FileEndsAtAnEmptyLine) {
  EXPECT_EQ(runFile("set 1 /a\n\nset 2 /b"), 3);
  EXPECT_EQ(runFile("get a\n   \nget b"), 3);
  EXPECT_THAT(shell.calls, ElementsAre("set|0|1|/a", "get|a"));
}

TEST_F(Scripts, FileThatEndsWithALineFeedReturnsNothing) {
  EXPECT_EQ(runFile("get a\nget b\n"), 3);
  EXPECT_EQ(runFile("get a\nget b"), 1);
  EXPECT_EQ(runFile(""), 3);
  EXPECT_THAT(shell.calls, ElementsAre("get|a", "get|b", "get|a", "get|b"));
}

TEST_F(Scripts, FileStopsAtAnErrorOrAnExit) {
  EXPECT_EQ(runFile("get a\nget -r\nget b"), 5);
  EXPECT_EQ(runFile("quit\nget b"), 11);
  EXPECT_EQ(shell.isRunning(), 0);
  EXPECT_THAT(shell.calls, ElementsAre("get|a", "exit"));
}

TEST_F(Scripts, FileRunsALineOfMaximumLengthWhole) {
  const std::string text(999 - 4, 'x');
  EXPECT_EQ(runFile("get " + text + "\nget b"), 1);
  EXPECT_THAT(shell.calls, ElementsAre("get|" + text, "get|b"));
}

TEST_F(Scripts, FileCutsALongerLineAndEndsThere) {
  const std::string start = "get " + std::string(999 - 4, 'x');
  EXPECT_EQ(runFile(start + std::string(201, 'y') + "\nget b\n"), 3);
  EXPECT_EQ(runFile(start + ";get hidden\nget b"), 3);
  EXPECT_THAT(shell.calls, ElementsAre("get|" + start.substr(4), "get|" + start.substr(4)));
}

TEST_F(Scripts, FileMayContainAnyBytes) {
  EXPECT_EQ(runFile(std::string("get a\0b\nget \xff\x1b[A\r", 17)), 1);
  EXPECT_THAT(shell.calls, ElementsAre("get|a", "get|\xff\x1b[A\r"));
}

TEST_F(Scripts, MissingFilesAndDirectoriesAreNotOpened) {
  EXPECT_EQ(shell.runCommandFile("/missing"), 6);
  EXPECT_EQ(shell.runCommandFile(""), 6);
  EXPECT_EQ(shell.runCommandFile("/"), 6);
  EXPECT_EQ(shell.dispatch("cmdfrom /missing"), 6);
  EXPECT_EQ(output.take(), "ERROR: OpenFileError\n");
}

TEST_F(Scripts, FilesRunFiles) {
  const ScriptFile inner("get inner");
  EXPECT_EQ(runFile(std::string("cmdfrom ") + inner.name() + "\nget outer"), 1);
  EXPECT_THAT(shell.calls, ElementsAre("get|inner", "get|outer"));
}

TEST_F(Scripts, StartedProgramsDoNotInheritTheFile) {
  EXPECT_EQ(runFile("$ls -l /proc/self/fd"), 1);
  EXPECT_THAT(output.take(), testing::Not(testing::HasSubstr("script-")));
}

TEST_F(Scripts, BatchModeHasNoHistory) {
  shell.runCommandString("pwd;history", 0);
  EXPECT_EQ(output.take(), "/\n");
}

/// The calls of an interactive shell, until its exit, that reads its input until it stops.
std::vector<std::string> callsOfInteractiveShell() {
  std::vector<std::string> calls;
  {
    // The destructor joins the editor's thread before `calls` is read.
    struct Shell : RecordingShell {
      explicit Shell(std::vector<std::string>& out) : RecordingShell(0), out_(out) {}
      int doExit() override {
        out_ = calls;
        return 1;
      }
      std::vector<std::string>& out_;
    } shell(calls);
    shell.acceptInput();
    while (shell.isRunning() != 0) {
      std::this_thread::yield();
    }
  }
  return calls;
}

TEST(Interactive, RunsLinesAndEndsWithTheInput) {
  FedInput input;
  const std::string longLine = "get " + std::string(500, 'x');
  input.feed("pwd\n" + longLine + "\nhistory\n");
  input.end();
  CapturedOutput output;
  EXPECT_THAT(callsOfInteractiveShell(), ElementsAre("get|" + longLine.substr(4)));
  const std::string at = "\033[39m\033[1G";
  const EditorEcho echo(" /");
  EXPECT_EQ(output.take(), echo.prompt() + echo.typed("pwd") + "\n" + at + "/\n" +
                               echo.nextPrompt() + echo.typed(longLine) + "\n" + echo.nextPrompt() +
                               echo.typed("history") + "\n" + at + "0 pwd\n" + at + "1 " +
                               longLine + "\n" + at + "2 history\n" + echo.nextPrompt() + "\n");
}

TEST(Interactive, EndsAtTheExitCommandThoughInputFollows) {
  FedInput input;
  input.feed("exit; get x\nget y\n");
  CapturedOutput output;
  static_cast<void>(callsOfInteractiveShell());
  const EditorEcho echo(" /");
  EXPECT_EQ(output.take(), echo.prompt() + echo.typed("exit; get x") + "\n");
}

TEST(Interactive, ReportsAReferenceBeyondTheHistoryAsNotFound) {
  FedInput input;
  input.feed("!-1\npwd\n");
  input.end();
  CapturedOutput output;
  static_cast<void>(callsOfInteractiveShell());
  const EditorEcho echo(" /");
  const std::string at = "\033[39m\033[1G";
  EXPECT_EQ(output.take(), echo.prompt() + echo.typed("!-1") + "\n" + at + "ERROR: NotFound\n" +
                               echo.nextPrompt() + echo.typed("pwd") + "\n" + at + "/\n" +
                               echo.nextPrompt() + "\n");
}

TEST(Interactive, RunsATabAsACommandOfTheLine) {
  FedInput input;
  input.feed("  get x\ty; q\tlate");
  CapturedOutput output;
  EXPECT_THAT(callsOfInteractiveShell(), ElementsAre("tab|get |x", "tab|get |xy"));
}

}  // namespace
}  // namespace treescope
