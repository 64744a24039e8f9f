#include <gtest/gtest.h>

#include <csignal>
#include <cstring>

#include "tests/support/process.h"
#include "tests/terminal/terminal_test.h"

// The terminal mode during the session, in the programs that it starts, and afterwards.

namespace terminal_test {
namespace {

using keys::ctrl;
using keys::returnKey;

bool isRaw(const termios& mode) {
  return (mode.c_lflag & static_cast<tcflag_t>(ICANON | ECHO)) == 0;
}

using Mode = TerminalTest;

TEST_F(Mode, IsRawAtThePrompt) {
  start();
  const termios mode = shell().mode();
  EXPECT_TRUE(isRaw(mode));
  EXPECT_EQ(mode.c_iflag & static_cast<tcflag_t>(BRKINT | ISTRIP | IXON), 0U);
  EXPECT_EQ(mode.c_lflag & static_cast<tcflag_t>(ECHOE | ECHOK | ECHONL | IEXTEN), 0U);
  EXPECT_NE(mode.c_iflag & static_cast<tcflag_t>(ICRNL), 0U);
  EXPECT_NE(mode.c_lflag & static_cast<tcflag_t>(ISIG), 0U);
  EXPECT_NE(mode.c_oflag & static_cast<tcflag_t>(OPOST), 0U);
  EXPECT_EQ(mode.c_cc[VMIN], 1);
  EXPECT_EQ(mode.c_cc[VTIME], 0);
}

TEST_F(Mode, IsTheOriginalOneForASystemCommand) {
  start();
  ASSERT_TRUE(run("$stty -a"));
  EXPECT_TRUE(showsText("isig icanon iexten echo echoe echok"));
  EXPECT_TRUE(showsLine("[ /]$ |"));
  EXPECT_TRUE(isRaw(shell().mode()));
}

TEST_F(Mode, LetsTheTerminalEditTheInputOfASystemCommand) {
  start();
  ASSERT_TRUE(type("$echo ready && head -n 1" + returnKey));
  ASSERT_TRUE(
      showsScreen("[ /]$ $echo ready && head -n 1\n"
                  "ready\n"));
  ASSERT_TRUE(type("helpo" + keys::backspace + keys::backspace));
  ASSERT_TRUE(showsLine("hel|"));
  ASSERT_TRUE(type("lo" + returnKey));
  EXPECT_TRUE(
      showsScreen("[ /]$ $echo ready && head -n 1\n"
                  "ready\n"
                  "hello\n"
                  "hello\n"
                  "[ /]$\n"));
  EXPECT_TRUE(isRaw(shell().mode()));
}

TEST_F(Mode, LeavesTypedKeysToTheSystemCommandThatReadsThem) {
  start();
  ASSERT_TRUE(type("$head -n 1 | tr a-z A-Z" + returnKey + "hello" + returnKey));
  EXPECT_TRUE(showsText("HELLO"));
  EXPECT_TRUE(showsLine("[ /]$ |"));
}

TEST_F(Mode, IsRestoredAfterASystemCommandChangedIt) {
  start();
  ASSERT_TRUE(run("$stty -echo -icanon ixon"));
  ASSERT_TRUE(run("pwd"));
  EXPECT_TRUE(isRaw(shell().mode()));
}

/// The shell as a job of `sh`.
class Job : public testing::Test {
 protected:
  void start() {
    ASSERT_TRUE(terminal_.showsLine("job> |"));
    ASSERT_TRUE(terminal_.type(test_support::treescopeProgram() + returnKey));
    ASSERT_TRUE(terminal_.showsLine("[ /]$ |"));
    // The prompt appears before the shell is ready; the output of a command appears after.
    ASSERT_TRUE(terminal_.type("pwd" + returnKey));
    ASSERT_TRUE(terminal_.waitFor(
        [](const Screen& screen) { return screen.text().ends_with("\n/\n[ /]$\n"); },
        "the output of pwd"));
    ASSERT_TRUE(terminal_.showsLine("[ /]$ |"));
  }

  TerminalSession terminal_{{"env", "PS1=job> ", "/bin/sh", "-i"}};
};

TEST_F(Job, ShowsItsLineAgainWhenItIsContinued) {
  start();
  ASSERT_TRUE(terminal_.type("half a line" + keys::left + keys::left + "X"));
  ASSERT_TRUE(terminal_.showsLine("[ /]$ half a liX|ne"));
  ASSERT_TRUE(terminal_.type(ctrl('Z')));
  ASSERT_TRUE(terminal_.showsLine("job> |"));
  ASSERT_TRUE(terminal_.type("fg"));
  ASSERT_TRUE(terminal_.showsLine("job> fg|")) << "the terminal echoes as before";
  ASSERT_TRUE(terminal_.type(returnKey));
  ASSERT_TRUE(terminal_.showsLine("[ /]$ half a liX|ne"));
  ASSERT_TRUE(terminal_.type("Y"));
  ASSERT_TRUE(terminal_.showsLine("[ /]$ half a liXY|ne"));
  ASSERT_TRUE(terminal_.type(ctrl('W') + ctrl('K') + "exit" + returnKey));
  ASSERT_TRUE(terminal_.showsLine("job> |"));
}

class JobEnd : public Job, public testing::WithParamInterface<std::string> {};

TEST_P(JobEnd, LeavesATerminalThatEchoesAndReadsLines) {
  const termios before = TerminalSession({"true"}).mode();
  start();
  ASSERT_TRUE(terminal_.type(GetParam()));
  ASSERT_TRUE(terminal_.showsLine("job> |"));
  ASSERT_TRUE(terminal_.type("echo agaim" + keys::backspace + "n"));
  ASSERT_TRUE(terminal_.showsLine("job> echo again|"));
  EXPECT_TRUE(sameMode(terminal_.mode(), before));
}

INSTANTIATE_TEST_SUITE_P(Keys, JobEnd,
                         testing::Values("exit" + returnKey, "quit" + returnKey, "q" + returnKey,
                                         ctrl('C'), ctrl('\\'), "half a line" + ctrl('C')));

class SignalledEnd : public Mode, public testing::WithParamInterface<int> {};

TEST_P(SignalledEnd, RestoresTheTerminal) {
  const termios before = TerminalSession({"true"}).mode();
  TerminalSession terminal({test_support::treescopeProgram()});
  ASSERT_TRUE(terminal.type("pwd" + returnKey));
  ASSERT_TRUE(terminal.showsText("/"));
  terminal.signal(GetParam());
  EXPECT_EQ(terminal.waitForExit(), (test_support::ExitStatus{0, GetParam()}));
  EXPECT_TRUE(sameMode(terminal.mode(), before));
}

INSTANTIATE_TEST_SUITE_P(Signals, SignalledEnd,
                         testing::Values(SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGABRT),
                         [](const auto& test) {
                           return std::string("SIG") + sigabbrev_np(test.param);
                         });

TEST_F(Mode, IsNotNeededWhenTheTerminalIsLost) {
  TerminalSession terminal({test_support::treescopeProgram()});
  ASSERT_TRUE(terminal.showsLine("[ /]$ |"));
  // A login shell sends the signal when it loses its terminal.
  terminal.hangUp();
  terminal.signal(SIGHUP);
  const auto status = terminal.waitForExit();
  ASSERT_TRUE(status.has_value());
  EXPECT_TRUE(status->code == 0 && (status->signal == 0 || status->signal == SIGHUP))
      << "the end of the input and the signal arrive at the same time";
}

}  // namespace
}  // namespace terminal_test
