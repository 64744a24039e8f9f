#include <gtest/gtest.h>

#include <cstdio>

#include "shell/command_table.h"
#include "tests/shell/recording_shell.h"
#include "tests/support/captured_output.h"
#include "tests/support/editor_echo.h"

namespace treescope {
namespace {

using test_support::CapturedOutput;
using Calls = std::vector<std::string>;

constexpr const char* optionError = "ERROR: OptionError\n";

struct DispatchCase {
  const char* command;
  int code;
  Calls calls;
  const char* output = "";
};

void expectDispatched(const std::vector<DispatchCase>& cases) {
  for (const DispatchCase& given : cases) {
    RecordingShell shell;
    CapturedOutput output;
    EXPECT_EQ(shell.dispatch(given.command), given.code) << given.command;
    EXPECT_EQ(output.take(), given.output) << given.command;
    EXPECT_EQ(shell.calls, given.calls) << given.command;
  }
}

TEST(Dispatch, CallsTheHandlerOfEachCommand) {
  expectDispatched({
      {"", 3, {}},
      {"    ", 3, {}},
      {"ls", 1, {"ls|0|null"}},
      {"ls -x", 1, {"ls|0|null"}},
      {"ls -rl /a -mc", 1, {"ls|15|/a"}},
      {"cd", 1, {"cd|null"}},
      {"cd /a", 1, {"cd|/a"}},
      {"set -c 1 /a", 1, {"set|8|1|/a"}},
      {"set -lc 1", 1, {"set|12|1|null"}},
      {"set 1", 1, {"set|0|1|null"}},
      {"str -1 /a", 1, {"str|-1|/a"}},
      {"str \"a b\" /a rest -r", 1, {"str|a b|/a"}},
      {"str \"\"", 1, {"str||null"}},
      {"get [3]", 1, {"get|[3]"}},
      {"eu -rml /a", 1, {"eu|7|/a"}},
      {"du -r /a", 1, {"du|/a"}},
      {"convert a", 1, {"convert|a|null"}},
      {"from a b", 1, {"from|a|b"}},
      {"to a b", 1, {"to|a|b"}},
      {"cat -l", 1, {"cat|4|null"}},
      {"con a b", 1, {"con|a|b"}},
      {"dis a", 1, {"dis|a|null"}},
      {"load", 1, {"load|null"}},
      {"save x", 1, {"save|x"}},
      {"rn a b", 1, {"rn|a|b"}},
      {"rm x", 1, {"rm|x"}},
      {"mkdir x", 1, {"mkdir|x"}},
      {"end", 1, {"end"}},
      {"terminate", 1, {"terminate"}},
      {"bt -rmlc", 1, {"bt|15|null"}},
      {"help", 1, {"help"}},
      {"foo bar", 1, {"other|foo|bar|null"}},
      {"# note -x y", 1, {"other|#|note|-x"}},
      {"LS x", 1, {"other|LS|x|null"}},
      {"\"ls\" /a", 1, {"ls|0|/a"}},
  });
}

TEST(Dispatch, RejectsOptionsAndArgumentsThatACommandDoesNotAccept) {
  for (const char* command :
       {"ls /a /b",      "cd -r",     "cd /a /b",  "set",         "set -l",
        "set -r 1",      "set -m 1",  "set 1 2 3", "setport a b", "setport a b c d",
        "str",           "get -r",    "get a b",   "eu -c",       "eu a b",
        "du -m",         "du -l",     "du -c",     "du a b",      "from",
        "from a b c",    "to -r",     "to a b c",  "cat -r",      "cat -m",
        "cat -c",        "cat a b",   "con",       "con a b c",   "dis",
        "dis a b c",     "load a b",  "save a b",  "rn",          "rn a b c",
        "rm a b",        "mkdir a b", "cmdfrom",   "cmdfrom a b", "convert",
        "convert a b c", "bt x",      "foo",       " $ls",        "\"\""}) {
    expectDispatched({{command, 5, {}, optionError}});
  }
  expectDispatched({{"history -r", 5, {}}, {"history a b", 5, {}}, {"history a", 1, {}}});
}

TEST(Dispatch, AppliesTheLimitsOfEachRow) {
  for (const CommandRow& row : commandTable) {
    if (row.check != ArgumentCheck::limits) {
      continue;
    }
    const auto codeOf = [&row](const std::string& arguments) {
      RecordingShell shell;
      const CapturedOutput output;
      return shell.dispatch((row.name + arguments).c_str());
    };
    std::string arguments;
    for (unsigned count = 0; count < row.maxArgs; ++count) {
      arguments += " x";
    }
    EXPECT_NE(codeOf(arguments), result::optionError) << row.name;
    EXPECT_EQ(codeOf(arguments + " x"), result::optionError) << row.name;
    for (const char letter : {'r', 'm', 'l', 'c', 'x'}) {
      const bool accepted = (optionBit(letter) & ~row.optionMask) == 0;
      EXPECT_EQ(codeOf(arguments + " -" + letter) != result::optionError, accepted)
          << row.name << " -" << letter;
    }
  }
}

TEST(Dispatch, RejectsAnyWordAfterCommandsWithoutArguments) {
  for (const char* command : {"exit now", "quit -r", "q x", "pwd x", "end x", "terminate x"}) {
    expectDispatched({{command, 3, {}, optionError}});
  }
  expectDispatched({{"help me", 3, {}}});
}

TEST(Dispatch, PassesCompletionRequestsToTheirHandler) {
  expectDispatched({
      {"tab", 1, {"tab|null|null"}},
      {"tab ", 1, {"tab|null|null"}},
      {"tab l", 1, {"tab|l|null"}},
      {"tab ls ", 1, {"tab|ls |null"}},
      {"tab ls a", 1, {"tab|ls |a"}},
      {"tab ls -r a b ", 1, {"tab|ls |b"}},
  });
}

TEST(Dispatch, EndsTheShellOnEachExitCommand) {
  for (const char* command : {"exit", "quit", "  q "}) {
    RecordingShell shell;
    shell.code = 4;
    CapturedOutput output;
    EXPECT_EQ(shell.isRunning(), 1);
    EXPECT_EQ(shell.dispatch(command), 11);
    EXPECT_EQ(shell.isRunning(), 0);
    EXPECT_EQ(shell.calls, Calls{"exit"});
    EXPECT_EQ(output.take(), "");
  }
}

TEST(Dispatch, KeepsTheShellRunningAfterARejectedExit) {
  RecordingShell shell;
  const CapturedOutput output;
  shell.dispatch("exit now");
  EXPECT_EQ(shell.isRunning(), 1);
}

TEST(Dispatch, PrintsTheMessageOfAResult) {
  RecordingShell shell;
  shell.code = 4;
  CapturedOutput output;
  EXPECT_EQ(shell.dispatch("get x"), 4);
  EXPECT_EQ(output.take(), "ERROR: NotFound\n");
}

TEST(Dispatch, PrintsAMessageInTheFirstColumnInteractively) {
  CapturedOutput output;
  {
    RecordingShell shell(0);
    shell.printResult(10);
    shell.printResult(3);
  }
  EXPECT_EQ(output.take(),
            test_support::EditorEcho(" /").prompt() + "\033[39m\033[1GERROR: Bad Argument\n");
}

TEST(Dispatch, StoresThreePortNames) {
  RecordingShell shell;
  CapturedOutput output;
  EXPECT_EQ(shell.dispatch("setport a \"\" c"), 3);
  EXPECT_EQ(shell.ports(), (Calls{"a", "", "c"}));
  EXPECT_EQ(output.take(), "");
}

TEST(Dispatch, RunsSystemCommandsInOrderWithTheShellsOutput) {
  RecordingShell shell;
  shell.path() = {"a", "b"};
  CapturedOutput output;
  EXPECT_EQ(shell.runLine("pwd;$printf 'x y\\n';pwd"), 1);
  EXPECT_EQ(shell.dispatch("$exit 5"), 3);
  EXPECT_EQ(shell.dispatch("$"), 3);
  EXPECT_EQ(output.take(), "/a/b\nx y\n/a/b\n");
}

TEST(Dispatch, PrintsTheCurrentPath) {
  RecordingShell shell;
  CapturedOutput output;
  EXPECT_EQ(shell.dispatch("pwd"), 1);
  EXPECT_EQ(output.take(), "/\n");
}

TEST(ScopeBase, AcceptsCommandsWithoutAHandlerOfTheirOwn) {
  CapturedOutput output;
  ScopeBase shell(nullptr, 1);
  for (const char* command :
       {"ls",     "cd",    "set 1", "str x", "get",       "eu",   "du",   "convert a",
        "from a", "to a",  "cat",   "con a", "dis a",     "load", "save", "rn a",
        "rm",     "mkdir", "tab",   "end",   "terminate", "bt",   "help", "foo bar"}) {
    EXPECT_EQ(shell.dispatch(command), 3) << command;
  }
  EXPECT_EQ(output.take(), "");
}

TEST(ScopeBase, ShowsLabelAndLastComponentInThePrompt) {
  RecordingShell shell;
  EXPECT_EQ(shell.promptText(), " /");
  shell.path() = {"srv", "node"};
  shell.setPromptLabel("label");
  EXPECT_EQ(shell.promptText(), "label node");
}

}  // namespace
}  // namespace treescope
