#include <gtest/gtest.h>

#include "tests/support/process.h"
#include "tests/terminal/terminal_test.h"

// The first steps with the shell.

namespace terminal_test {
namespace {

using Session = TerminalTest;

TEST_F(Session, BeginsWithAPromptAtTheTopOfTheTree) {
  start();
  EXPECT_EQ(screen().text(), "[ /]$\n");
  EXPECT_TRUE(showsLine("[ /]$ |"));
}

TEST_F(Session, RunsALineAndPromptsAgain) {
  start();
  ASSERT_TRUE(enter("pwd"));
  EXPECT_TRUE(
      showsScreen("[ /]$ pwd\n"
                  "/\n"
                  "[ /]$\n"));
}

TEST_F(Session, ReportsAnError) {
  start();
  ASSERT_TRUE(enter("fly"));
  EXPECT_TRUE(
      showsScreen("[ /]$ fly\n"
                  "ERROR: OptionError\n"
                  "[ /]$\n"));
}

TEST_F(Session, RunsAllCommandsOfALine) {
  start();
  ASSERT_TRUE(enter("pwd;pwd"));
  EXPECT_TRUE(
      showsScreen("[ /]$ pwd;pwd\n"
                  "/\n"
                  "/\n"
                  "[ /]$\n"));
}

class SessionEnding : public TerminalTest, public testing::WithParamInterface<const char*> {};

TEST_P(SessionEnding, EndsWithoutAnotherPrompt) {
  start();
  ASSERT_TRUE(enter(GetParam()));
  EXPECT_TRUE(showsScreen("[ /]$ " + std::string(GetParam()) + '\n'));
  expectCleanEnd();
}

INSTANTIATE_TEST_SUITE_P(Words, SessionEnding, testing::Values("exit", "quit", "q", "exit;pwd"));

TEST(BatchSession, WritesPlainLinesAndDoesNotChangeTheTerminal) {
  const termios before = TerminalSession({"true"}).mode();
  TerminalSession batch({test_support::treescopeProgram(), "-c", "pwd;history;pwd;fly"});
  EXPECT_EQ(batch.waitForExit(), (test_support::ExitStatus{0, 0}));
  EXPECT_EQ(batch.bytesSince(0), "/\r\n/\r\nERROR: OptionError\r\n");
  EXPECT_TRUE(sameMode(batch.mode(), before));
}

class IgnoredSwitches : public TerminalTest,
                        public testing::WithParamInterface<std::vector<std::string>> {};

TEST_P(IgnoredSwitches, StartTheShellAsIfTheyWereAbsent) {
  start({}, GetParam());
  EXPECT_EQ(screen().text(), "[ /]$\n");
}

INSTANTIATE_TEST_SUITE_P(
    All, IgnoredSwitches,
    testing::Values(std::vector<std::string>{"-c"}, std::vector<std::string>{"-f"},
                    std::vector<std::string>{"-x"}, std::vector<std::string>{"-cx", "exit"},
                    std::vector<std::string>{"--verbose"}, std::vector<std::string>{"exit"}));

}  // namespace
}  // namespace terminal_test
