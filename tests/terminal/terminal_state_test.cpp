#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <fstream>

#include "tests/support/descriptor.h"
#include "tests/support/port_name.h"
#include "tests/support/process.h"
#include "tests/terminal/terminal_test.h"

// The built shell restores the mode of its terminal, however it ends or stops.

namespace terminal_test {
namespace {

const std::string topPrompt = "[ /]$ ";

bool hasRawMode(const termios& mode) {
  return (mode.c_lflag & static_cast<tcflag_t>(ICANON | ECHO)) == 0;
}

class TerminalState : public testing::Test {
 protected:
  /// Starts the shell and waits for its prompt, at which raw mode is on.
  void start(const TerminalOptions& options = {},
             const std::vector<std::string>& command = {test_support::treescopeProgram()}) {
    original_ = TerminalSession({"true"}).mode();
    shell_.emplace(command, options);
    if (options.foreground) {
      ASSERT_TRUE(shell_->readThrough(topPrompt));
      ASSERT_TRUE(hasRawMode(shell_->mode()));
      // The shell is completely constructed only when it runs a line.
      enter("pwd");
      ASSERT_TRUE(shell_->readThrough(topPrompt));
    }
  }

  void type(const std::string& keys) { EXPECT_TRUE(shell_->type(keys)); }
  void enter(const std::string& line) { type(line + keys::returnKey); }

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
    ASSERT_TRUE(status) << shell_->describe();
    ASSERT_TRUE(WIFEXITED(*status)) << *status;
    EXPECT_EQ(WEXITSTATUS(*status), code);
    EXPECT_TRUE(originalMode());
  }

  void expectKilledBy(int signal) {
    const auto status = nextHalt();
    ASSERT_TRUE(status) << shell_->describe();
    ASSERT_TRUE(WIFSIGNALED(*status)) << *status;
    EXPECT_EQ(WTERMSIG(*status), signal);
    EXPECT_TRUE(originalMode());
  }

  void expectStoppedBy(int signal) {
    const auto status = nextHalt();
    ASSERT_TRUE(status) << shell_->describe();
    ASSERT_TRUE(WIFSTOPPED(*status)) << *status;
    EXPECT_EQ(WSTOPSIG(*status), signal);
  }

  /// Waits for a prompt in raw mode. An earlier prompt may be unread, and one may be
  /// printed before the thread that stopped the shell sets raw mode again; that thread
  /// then repaints the prompt.
  void expectRawPrompt() {
    do {
      ASSERT_TRUE(shell_->readThrough(topPrompt));
    } while (!hasRawMode(shell_->mode()));
  }

  /// Continues the shell and waits until it has repainted its prompt.
  void expectItContinues() {
    shell_->continueInForeground();
    const auto status = shell_->nextStatus();
    ASSERT_TRUE(status && WIFCONTINUED(*status));
    expectRawPrompt();
  }

  termios original_{};
  std::optional<TerminalSession> shell_;
};

TEST_F(TerminalState, IsRestoredAfterEveryCommandThatEndsTheShell) {
  for (const char* const command : {"exit", "quit", "q"}) {
    start();
    enter(command);
    expectEnd(0);
  }
}

TEST_F(TerminalState, HasEchoAfterTheShell) {
  start();
  enter("exit");
  expectEnd(0);
  EXPECT_NE(shell_->mode().c_lflag & static_cast<tcflag_t>(ECHO), 0U);
}

TEST_F(TerminalState, IsRestoredAtTheEndOfInput) {
  start();
  // In line mode Ctrl-D ends the input.
  shell_->setMode(original_);
  type("\004");
  expectEnd(0);
}

TEST_F(TerminalState, EndsTheShellWhenTheTerminalHangsUp) {
  start();
  shell_->hangUp();
  const auto status = nextHalt();
  ASSERT_TRUE(status) << shell_->describe();
  EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0) << *status;
}

class TerminalStateAfter : public TerminalState, public testing::WithParamInterface<int> {};

TEST_P(TerminalStateAfter, SignalIsRestoredAndTheStatusReportsTheSignal) {
  start();
  shell_->signal(GetParam());
  expectKilledBy(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Ending, TerminalStateAfter,
                         testing::Values(SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGABRT, SIGTRAP, SIGIO,
                                         SIGPWR, SIGVTALRM, SIGPROF, SIGSTKFLT),
                         [](const auto& test) {
                           return std::string("SIG") + sigabbrev_np(test.param);
                         });

TEST_F(TerminalState, IsRestoredAfterARealTimeSignal) {
  for (const int signal : {SIGRTMIN, SIGRTMIN + 3, SIGRTMAX}) {
    start();
    shell_->signal(signal);
    expectKilledBy(signal);
  }
}

TEST_F(TerminalState, IsRestoredAfterTheInterruptAndTheQuitKey) {
  const std::array<std::pair<const char*, int>, 2> keys{{{"\003", SIGINT}, {"\034", SIGQUIT}}};
  for (const auto& [key, signal] : keys) {
    start();
    type(key);
    expectKilledBy(signal);
  }
}

TEST_F(TerminalState, IsRestoredAfterAnInterruptWhileACommandFileIsAwaited) {
  const std::string pipe = "/tmp/" + test_support::uniquePortName("pipe_");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  start();
  enter("cmdfrom " + pipe);
  // Opens when the shell reads the pipe.
  const test_support::Descriptor writer(::open(pipe.c_str(), O_WRONLY | O_CLOEXEC));
  EXPECT_NE(writer.get(), -1);
  type("\003");
  expectKilledBy(SIGINT);
  EXPECT_EQ(::unlink(pipe.c_str()), 0);
}

TEST_F(TerminalState, StaysRawAtASignalThatWasIgnoredFromTheStart) {
  for (const int signal :
       {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGTTIN, SIGTTOU, SIGVTALRM, SIGRTMIN}) {
    start({.ignoredSignal = signal});
    shell_->signal(signal);
    enter("pwd");
    ASSERT_TRUE(shell_->readThrough("/\r\n"));
    ASSERT_TRUE(shell_->readThrough(topPrompt));
    EXPECT_TRUE(hasRawMode(shell_->mode())) << signal;
    enter("exit");
    expectEnd(0);
  }
}

TEST_F(TerminalState, IsOriginalWhileTheShellIsSuspendedAndRawAgainAfterwards) {
  start();
  for (const bool byKey : {false, true, true}) {
    if (byKey) {
      type("\032");
    } else {
      shell_->signal(SIGTSTP);
    }
    expectStoppedBy(SIGTSTP);
    EXPECT_TRUE(originalMode());
    expectItContinues();
  }
  enter("exit");
  expectEnd(0);
}

TEST_F(TerminalState, IsOriginalWhileASignalForBackgroundJobsHasStoppedTheShell) {
  start();
  for (const int signal : {SIGTTIN, SIGTTOU, SIGTTIN}) {
    shell_->signal(signal);
    expectStoppedBy(signal);
    EXPECT_TRUE(originalMode()) << signal;
    expectItContinues();
  }
  enter("exit");
  expectEnd(0);
}

TEST_F(TerminalState, IsRawAgainAfterAStopThatCannotBeCaught) {
  start();
  type("half a line");
  ASSERT_TRUE(shell_->readThrough("half a line\033[0K"));
  shell_->signal(SIGSTOP);
  expectStoppedBy(SIGSTOP);
  shell_->setMode(original_);
  expectItContinues();
  EXPECT_TRUE(shell_->readThrough("half a line"));
  type("\001\013");
  enter("exit");
  expectEnd(0);
}

TEST_F(TerminalState, IsRestoredWhenASuspendedShellIsKilled) {
  start();
  type("\032");
  expectStoppedBy(SIGTSTP);
  shell_->signal(SIGTERM);
  shell_->signal(SIGCONT);
  expectKilledBy(SIGTERM);
}

TEST_F(TerminalState, IsNotChangedByAShellInTheBackground) {
  start({.foreground = false});
  expectStoppedBy(SIGTTOU);
  EXPECT_TRUE(originalMode());
  expectItContinues();
  shell_->moveToBackground();
  shell_->setMode(original_);
  shell_->signal(SIGTERM);
  expectKilledBy(SIGTERM);
}

TEST_F(TerminalState, IsNotChangedByASuspendedShellThatIsContinuedInTheBackground) {
  start();
  // Repeated, since both threads react when the shell is continued.
  for (int times = 0; times < 40; ++times) {
    type("\032");
    expectStoppedBy(SIGTSTP);
    shell_->moveToBackground();
    shell_->signal(SIGCONT);
    expectStoppedBy(SIGTTOU);
    ASSERT_TRUE(originalMode());
    expectItContinues();
  }
  enter("exit");
  expectEnd(0);
}

TEST_F(TerminalState, IsTheForegroundModeForAShellThatWasStartedInTheBackground) {
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
  expectItContinues();
  enter("exit");
  expectEnd(0);
}

TEST_F(TerminalState, IsOriginalForASystemCommandAndRawAfterIt) {
  start();
  enter(
      "$stty -a | tr ' ' '\\n' | grep -x -e '-*icanon' -e '-*echo' -e '-*ixon' -e '-*iexten'|tr "
      "'\\n' ' '");
  EXPECT_TRUE(shell_->readThrough("ixon icanon iexten echo "));
  ASSERT_TRUE(shell_->readThrough(topPrompt));
  EXPECT_TRUE(hasRawMode(shell_->mode()));
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
  EXPECT_TRUE(shell_->readThrough("manual of treescope\r\n"));
  EXPECT_TRUE(originalMode());
  type("q\r");
  EXPECT_TRUE(shell_->readThrough("closed by q\r\n"));
  EXPECT_TRUE(shell_->readThrough(topPrompt));
  EXPECT_TRUE(hasRawMode(shell_->mode()));
  enter("exit");
  expectEnd(0);
  EXPECT_EQ(::unlink(man.c_str()), 0);
  EXPECT_EQ(::rmdir(directory.c_str()), 0);
}

TEST_F(TerminalState, SendsAnInterruptDuringACommandToTheCommandOnly) {
  start();
  enter("$exec cat /proc/version -");
  ASSERT_TRUE(shell_->readThrough("Linux version"));
  EXPECT_TRUE(originalMode());
  type("\003");
  ASSERT_TRUE(shell_->readThrough(topPrompt));
  EXPECT_TRUE(hasRawMode(shell_->mode()));
  type("\003");
  expectKilledBy(SIGINT);
}

TEST_F(TerminalState, IsNotChangedWhenTheShellIsSuspendedDuringACommand) {
  if (test_support::threadSanitized) {
    GTEST_SKIP() << "the sanitizer keeps a signal from a thread that waits in system(3)";
  }
  start();
  enter("$stty -echo && echo ready && cat");
  ASSERT_TRUE(shell_->readThrough("ready\r\n"));
  const termios ofCommand = shell_->mode();
  type("\032");
  expectStoppedBy(SIGTSTP);
  EXPECT_TRUE(sameMode(shell_->mode(), ofCommand));
  shell_->moveToBackground();
  EXPECT_EQ(::kill(-shell_->pid(), SIGCONT), 0);
  // The command reads its input.
  expectStoppedBy(SIGTTIN);
  shell_->continueInForeground();
  ASSERT_TRUE(WIFCONTINUED(shell_->nextStatus().value_or(0)));
  EXPECT_TRUE(sameMode(shell_->mode(), ofCommand));
  type("text\n\004");
  ASSERT_TRUE(shell_->readThrough("text\r\n"));
  expectRawPrompt();
  enter("exit");
  expectEnd(0);
}

TEST_F(TerminalState, HidesItsSignalHandlersFromCommands) {
  start();
  enter("$cat /proc/self/status | grep -e ^SigBlk -e ^SigCgt");
  const std::string none = ":\t0000000000000000\r\n";
  EXPECT_TRUE(shell_->readThrough("\nSigBlk" + none + "SigCgt" + none));
  enter("exit");
  expectEnd(0);
}

TEST_F(TerminalState, IsNotChangedInBatchMode) {
  original_ = TerminalSession({"true"}).mode();
  // The bits of SIGHUP, SIGTERM, SIGCONT and SIGTSTP in the set of caught signals.
  const std::string caught = "$((0x$(grep ^SigCgt /proc/$PPID/status | cut -f2) & 0xa4001))";
  shell_.emplace(std::vector<std::string>{test_support::treescopeProgram(), "-c",
                                          "$echo caught " + caught + " && read line"});
  ASSERT_TRUE(shell_->readThrough("caught 0\r\n"));
  EXPECT_TRUE(originalMode());
  type("\n");
  expectEnd(0);
}

}  // namespace
}  // namespace terminal_test
