#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <fstream>

#include "tests/support/job_terminal.h"
#include "tests/support/port_name.h"
#include "tests/support/programs.h"

// The built shell leaves its terminal as it found it, however it ends or stops.

namespace {

using test_support::JobTerminal;
using test_support::sameMode;

const std::string prompt = "[ /]$ ";

bool isRaw(const termios& mode) {
  return (mode.c_lflag & static_cast<tcflag_t>(ICANON | ECHO)) == 0;
}

class TerminalState : public testing::Test {
 protected:
  /// Starts the shell and waits for its prompt, at which raw mode is on.
  void start(const JobTerminal::Options& options = {},
             const std::vector<std::string>& command = {test_support::treescopeProgram()}) {
    original_ = JobTerminal({"true"}).mode();
    shell_.emplace(command, options);
    if (options.foreground) {
      ASSERT_TRUE(shell_->waitForOutput(prompt));
      ASSERT_TRUE(isRaw(shell_->mode()));
      // Not before a key is taken has the whole shell been built.
      enter("pwd");
      ASSERT_TRUE(shell_->waitForOutput(prompt));
    }
  }

  void enter(const std::string& line) { shell_->type(line + '\r'); }

  [[nodiscard]] bool originalMode() const { return sameMode(shell_->mode(), original_); }

  /// How the shell ended or stopped, whether or not it was continued before.
  std::optional<int> nextHalt() {
    auto status = shell_->nextStatus();
    while (status && WIFCONTINUED(*status)) {
      status = shell_->nextStatus();
    }
    return status;
  }

  void expectEnd(int code) {
    const auto status = nextHalt();
    ASSERT_TRUE(status) << shell_->output();
    ASSERT_TRUE(WIFEXITED(*status)) << *status;
    EXPECT_EQ(WEXITSTATUS(*status), code);
    EXPECT_TRUE(originalMode());
  }

  void expectKilledBy(int signal) {
    const auto status = nextHalt();
    ASSERT_TRUE(status) << shell_->output();
    ASSERT_TRUE(WIFSIGNALED(*status)) << *status;
    EXPECT_EQ(WTERMSIG(*status), signal);
    EXPECT_TRUE(originalMode());
  }

  void expectStoppedBy(int signal) {
    const auto status = nextHalt();
    ASSERT_TRUE(status) << shell_->output();
    ASSERT_TRUE(WIFSTOPPED(*status)) << *status;
    EXPECT_EQ(WSTOPSIG(*status), signal);
  }

  /// Waits for a prompt in raw mode. One may be left of the time before, or come
  /// while a thread that stopped the shell has yet to take raw mode again; that one
  /// has the prompt repainted.
  void expectRawPrompt() {
    do {
      ASSERT_TRUE(shell_->waitForOutput(prompt)) << shell_->output();
    } while (!isRaw(shell_->mode()));
  }

  /// Continues the shell and waits until it has repainted its prompt.
  void expectItGoesOn() {
    shell_->continueInForeground();
    const auto status = shell_->nextStatus();
    ASSERT_TRUE(status && WIFCONTINUED(*status));
    expectRawPrompt();
  }

  termios original_{};
  std::optional<JobTerminal> shell_;
};

TEST_F(TerminalState, IsAsBeforeAfterEveryCommandThatEndsTheShell) {
  for (const char* const command : {"exit", "quit", "q"}) {
    start();
    enter(command);
    expectEnd(0);
  }
}

TEST_F(TerminalState, HasTheEchoOnAfterTheShell) {
  start();
  enter("exit");
  expectEnd(0);
  EXPECT_NE(shell_->mode().c_lflag & static_cast<tcflag_t>(ECHO), 0U);
}

TEST_F(TerminalState, IsAsBeforeAtTheEndOfInput) {
  start();
  // Whoever gives the terminal its lines back can end the input with Ctrl-D.
  shell_->setMode(original_);
  shell_->type("\004");
  expectEnd(0);
}

TEST_F(TerminalState, EndsTheShellWhenTheTerminalHangsUp) {
  start();
  shell_->hangUp();
  const auto status = nextHalt();
  ASSERT_TRUE(status);
  EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0) << *status;
}

class TerminalStateAfter : public TerminalState, public testing::WithParamInterface<int> {};

TEST_P(TerminalStateAfter, SignalIsAsBeforeAndTheStatusTellsTheSignal) {
  start();
  shell_->signal(GetParam());
  expectKilledBy(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Ending, TerminalStateAfter,
                         testing::Values(SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGABRT),
                         [](const auto& test) {
                           return std::string("SIG") + sigabbrev_np(test.param);
                         });

TEST_F(TerminalState, IsAsBeforeAfterTheInterruptAndTheQuitKey) {
  const std::array<std::pair<const char*, int>, 2> keys{{{"\003", SIGINT}, {"\034", SIGQUIT}}};
  for (const auto& [key, signal] : keys) {
    start();
    shell_->type(key);
    expectKilledBy(signal);
  }
}

TEST_F(TerminalState, StaysRawAtASignalThatWasIgnoredFromTheStart) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP}) {
    start({.ignored = signal});
    shell_->signal(signal);
    enter("pwd");
    ASSERT_TRUE(shell_->waitForOutput("/\r\n"));
    ASSERT_TRUE(shell_->waitForOutput(prompt));
    EXPECT_TRUE(isRaw(shell_->mode())) << signal;
    enter("exit");
    expectEnd(0);
  }
}

TEST_F(TerminalState, IsOriginalWhileTheShellIsSuspendedAndRawAgainAfterwards) {
  start();
  for (const bool byKey : {false, true, true}) {
    if (byKey) {
      shell_->type("\032");
    } else {
      shell_->signal(SIGTSTP);
    }
    expectStoppedBy(SIGTSTP);
    EXPECT_TRUE(originalMode());
    expectItGoesOn();
  }
  enter("exit");
  expectEnd(0);
}

TEST_F(TerminalState, IsRawAgainAfterAStopThatNothingCanCatch) {
  start();
  shell_->type("half a line");
  ASSERT_TRUE(shell_->waitForOutput("half a line\033[0K"));
  shell_->signal(SIGSTOP);
  expectStoppedBy(SIGSTOP);
  shell_->setMode(original_);
  expectItGoesOn();
  EXPECT_TRUE(shell_->waitForOutput("half a line"));
  shell_->type("\001\013");
  enter("exit");
  expectEnd(0);
}

TEST_F(TerminalState, IsAsBeforeWhenASuspendedShellIsKilled) {
  start();
  shell_->type("\032");
  expectStoppedBy(SIGTSTP);
  shell_->signal(SIGTERM);
  shell_->signal(SIGCONT);
  expectKilledBy(SIGTERM);
}

TEST_F(TerminalState, IsLeftToTheForegroundJobByAShellInTheBackground) {
  start({.foreground = false});
  expectStoppedBy(SIGTTOU);
  EXPECT_TRUE(originalMode());
  expectItGoesOn();
  shell_->sendToBackground();
  shell_->setMode(original_);
  shell_->signal(SIGTERM);
  expectKilledBy(SIGTERM);
}

TEST_F(TerminalState, IsLeftToOthersByASuspendedShellThatIsContinuedInTheBackground) {
  start();
  // More than once: both threads take notice of being continued.
  for (int times = 0; times < 40; ++times) {
    shell_->type("\032");
    expectStoppedBy(SIGTSTP);
    shell_->sendToBackground();
    shell_->signal(SIGCONT);
    expectStoppedBy(SIGTTOU);
    ASSERT_TRUE(originalMode());
    expectItGoesOn();
  }
  enter("exit");
  expectEnd(0);
}

TEST_F(TerminalState, IsThatOfTheForegroundForAShellThatWasStartedInTheBackground) {
  const std::string program = test_support::treescopeProgram();
  start({.foreground = false}, {"sh", "-c", "kill -STOP $$; exec " + program});
  expectStoppedBy(SIGSTOP);
  termios ofLineEditor = original_;
  ofLineEditor.c_iflag &= ~static_cast<tcflag_t>(ICRNL);
  ofLineEditor.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  shell_->setMode(ofLineEditor);
  for (int times = 0; times < 2; ++times) {
    shell_->signal(SIGCONT);
    expectStoppedBy(SIGTTOU);
  }
  shell_->setMode(original_);
  expectItGoesOn();
  enter("exit");
  expectEnd(0);
}

TEST_F(TerminalState, IsOriginalForACommandOfTheSystemAndRawAfterIt) {
  start();
  enter(
      "$stty -a | tr ' ' '\\n' | grep -x -e '-*icanon' -e '-*echo' -e '-*ixon' -e '-*iexten'|tr "
      "'\\n' ' '");
  EXPECT_TRUE(shell_->waitForOutput("ixon icanon iexten echo ")) << shell_->output();
  ASSERT_TRUE(shell_->waitForOutput(prompt));
  EXPECT_TRUE(isRaw(shell_->mode()));
  enter("exit");
  expectEnd(0);
}

TEST_F(TerminalState, IsOriginalForTheManualAndRawAfterIt) {
  const std::string directory = "/tmp/" + test_support::uniquePortName("man_");
  ASSERT_EQ(::mkdir(directory.c_str(), 0700), 0);
  const std::string man = directory + "/man";
  std::ofstream(man) << "#!/bin/sh\necho \"manual of $1\"\nread key\necho \"closed by $key\"\n";
  ASSERT_EQ(::chmod(man.c_str(), 0700), 0);
  start({}, {"env", "PATH=" + directory, test_support::treescopeProgram()});
  enter("help");
  EXPECT_TRUE(shell_->waitForOutput("manual of treescope\r\n")) << shell_->output();
  EXPECT_TRUE(originalMode());
  shell_->type("q\r");
  EXPECT_TRUE(shell_->waitForOutput("closed by q\r\n")) << shell_->output();
  EXPECT_TRUE(shell_->waitForOutput(prompt));
  EXPECT_TRUE(isRaw(shell_->mode()));
  enter("exit");
  expectEnd(0);
  EXPECT_EQ(::unlink(man.c_str()), 0);
  EXPECT_EQ(::rmdir(directory.c_str()), 0);
}

TEST_F(TerminalState, GivesAnInterruptDuringACommandToTheCommandAlone) {
  start();
  enter("$exec cat /proc/version -");
  ASSERT_TRUE(shell_->waitForOutput("Linux version"));
  EXPECT_TRUE(originalMode());
  shell_->type("\003");
  ASSERT_TRUE(shell_->waitForOutput(prompt));
  EXPECT_TRUE(isRaw(shell_->mode()));
  shell_->type("\003");
  expectKilledBy(SIGINT);
}

TEST_F(TerminalState, IsNotTouchedWhenTheShellIsSuspendedDuringACommand) {
  start();
  enter("$stty -echo && echo ready && cat");
  ASSERT_TRUE(shell_->waitForOutput("ready\r\n"));
  const termios ofCommand = shell_->mode();
  shell_->type("\032");
  expectStoppedBy(SIGTSTP);
  EXPECT_TRUE(sameMode(shell_->mode(), ofCommand));
  shell_->sendToBackground();
  EXPECT_EQ(::kill(-shell_->pid(), SIGCONT), 0);
  // The command has asked for input.
  expectStoppedBy(SIGTTIN);
  shell_->continueInForeground();
  ASSERT_TRUE(WIFCONTINUED(shell_->nextStatus().value_or(0)));
  EXPECT_TRUE(sameMode(shell_->mode(), ofCommand));
  shell_->type("text\n\004");
  ASSERT_TRUE(shell_->waitForOutput("text\r\n")) << shell_->output();
  expectRawPrompt();
  enter("exit");
  expectEnd(0);
}

TEST_F(TerminalState, KeepsItsHandlersFromCommands) {
  start();
  enter("$cat /proc/self/status | grep -e ^SigBlk -e ^SigCgt");
  const std::string none = ":\t0000000000000000\r\n";
  EXPECT_TRUE(shell_->waitForOutput("\nSigBlk" + none + "SigCgt" + none)) << shell_->output();
  enter("exit");
  expectEnd(0);
}

TEST_F(TerminalState, IsNotTouchedInBatchMode) {
  original_ = JobTerminal({"true"}).mode();
  // The bits of SIGHUP, SIGTERM, SIGCONT and SIGTSTP among the caught signals.
  const std::string caught = "$((0x$(grep ^SigCgt /proc/$PPID/status | cut -f2) & 0xa4001))";
  shell_.emplace(std::vector<std::string>{test_support::treescopeProgram(), "-c",
                                          "$echo caught " + caught + " && read line"});
  ASSERT_TRUE(shell_->waitForOutput("caught 0\r\n")) << shell_->output();
  EXPECT_TRUE(originalMode());
  shell_->type("\n");
  expectEnd(0);
}

}  // namespace
