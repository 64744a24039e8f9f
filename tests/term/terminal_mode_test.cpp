#include "term/terminal_mode.h"

#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <optional>
#include <thread>
#include <vector>

#include "tests/support/fed_input.h"
#include "tests/support/process.h"
#include "tests/support/pseudo_terminal.h"

namespace treescope {
namespace {

using test_support::sameMode;

/// A pseudoterminal as standard input.
class TerminalMode : public testing::Test {
 protected:
  TerminalMode() : input_(dup(STDIN_FILENO)) {
    EXPECT_EQ(dup2(terminal_.device.get(), STDIN_FILENO), STDIN_FILENO);
    setUnusualMode();
    original_ = mode();
  }

  ~TerminalMode() override {
    static_cast<void>(setRawMode(0));
    EXPECT_EQ(dup2(input_, STDIN_FILENO), STDIN_FILENO);
    close(input_);
  }

  static termios mode() {
    termios current{};
    EXPECT_EQ(tcgetattr(STDIN_FILENO, &current), 0);
    return current;
  }

  static bool handled(int signal) {
    struct sigaction action {};
    EXPECT_EQ(sigaction(signal, nullptr, &action), 0);
    return action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN;
  }

  termios original_{};

 private:
  /// Every flag that raw mode clears is set, and some that it must not change have
  /// unusual values.
  static void setUnusualMode() {
    termios unusual = mode();
    unusual.c_iflag |= BRKINT | ISTRIP | IXON | IXANY | ICRNL;
    unusual.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    unusual.c_lflag |= ICANON | ECHO | ECHOE | ECHOK | ECHONL | IEXTEN | ISIG | NOFLSH;
    unusual.c_cc[VMIN] = 7;
    unusual.c_cc[VTIME] = 9;
    unusual.c_cc[VINTR] = 24;
    ASSERT_EQ(tcsetattr(STDIN_FILENO, TCSANOW, &unusual), 0);
  }

  const int input_;
  const test_support::PseudoTerminal terminal_ = test_support::openPseudoTerminal(24, 80);
};

TEST_F(TerminalMode, RawClearsItsFlagsAndLeavesTheOthers) {
  ASSERT_TRUE(setRawMode(1));
  termios expected = original_;
  expected.c_iflag &= ~tcflag_t{0x422};
  expected.c_lflag &= ~tcflag_t{0x807a};
  expected.c_cc[VMIN] = 1;
  expected.c_cc[VTIME] = 0;
  EXPECT_TRUE(sameMode(mode(), expected));
  EXPECT_EQ(mode().c_iflag, expected.c_iflag);
  EXPECT_EQ(mode().c_oflag, expected.c_oflag);
  EXPECT_EQ(mode().c_cflag, expected.c_cflag);
  EXPECT_EQ(mode().c_lflag, expected.c_lflag);
}

TEST_F(TerminalMode, AnyOtherModeRestoresEveryBit) {
  for (const int other : {0, 2, -1}) {
    ASSERT_TRUE(setRawMode(1));
    EXPECT_FALSE(sameMode(mode(), original_));
    EXPECT_TRUE(setRawMode(other));
    EXPECT_TRUE(sameMode(mode(), original_)) << other;
  }
}

TEST_F(TerminalMode, StaysTheSameIfRawModeIsSetTwice) {
  ASSERT_TRUE(setRawMode(1));
  const termios raw = mode();
  EXPECT_TRUE(setRawMode(1));
  EXPECT_TRUE(sameMode(mode(), raw));
  EXPECT_TRUE(setRawMode(0));
  EXPECT_TRUE(sameMode(mode(), original_));
}

TEST_F(TerminalMode, ReturnArrivesAsALineFeed) {
  ASSERT_TRUE(setRawMode(1));
  EXPECT_NE(mode().c_iflag & static_cast<tcflag_t>(ICRNL), 0U);
  EXPECT_NE(mode().c_lflag & static_cast<tcflag_t>(ISIG), 0U);
}

TEST_F(TerminalMode, IsOriginalWhileRawModeIsSuspendedAndRawAfterwards) {
  ASSERT_TRUE(setRawMode(1));
  const termios raw = mode();
  for (int time = 0; time < 2; ++time) {
    {
      const OriginalMode suspended;
      EXPECT_TRUE(sameMode(mode(), original_));
      const OriginalMode nested;
      EXPECT_TRUE(sameMode(mode(), original_));
      termios echoless = original_;
      echoless.c_lflag ^= ECHO;
      EXPECT_EQ(tcsetattr(STDIN_FILENO, TCSANOW, &echoless), 0);
    }
    EXPECT_TRUE(sameMode(mode(), raw));
  }
}

TEST_F(TerminalMode, SuspendingHasNoEffectIfRawModeIsOff) {
  { const OriginalMode suspended; }
  EXPECT_TRUE(sameMode(mode(), original_));
}

TEST_F(TerminalMode, HandlesSignalsOnlyWhileRawModeIsOn) {
  const std::array signals{SIGINT,  SIGTERM, SIGHUP,  SIGQUIT,   SIGABRT,  SIGTSTP,
                           SIGTTIN, SIGTTOU, SIGCONT, SIGVTALRM, SIGRTMIN, SIGRTMAX};
  for (const int signal : signals) {
    EXPECT_FALSE(handled(signal)) << signal;
  }
  ASSERT_TRUE(setRawMode(1));
  for (const int signal : signals) {
    EXPECT_TRUE(handled(signal)) << signal;
  }
  ASSERT_TRUE(setRawMode(0));
  for (const int signal : signals) {
    EXPECT_FALSE(handled(signal)) << signal;
  }
}

TEST_F(TerminalMode, LeavesSignalsWithoutTheDefaultActionUnchanged) {
  struct sigaction mine {};
  mine.sa_handler = [](int) {};
  struct sigaction before {};
  ASSERT_EQ(sigaction(SIGTERM, &mine, &before), 0);
  ASSERT_NE(signal(SIGHUP, SIG_IGN), SIG_ERR);
  for (const int raw : {1, 0}) {
    ASSERT_TRUE(setRawMode(raw));
    struct sigaction current {};
    EXPECT_EQ(sigaction(SIGTERM, nullptr, &current), 0);
    EXPECT_EQ(current.sa_handler, mine.sa_handler);
    EXPECT_EQ(sigaction(SIGHUP, nullptr, &current), 0);
    EXPECT_EQ(current.sa_handler, SIG_IGN);
  }
  EXPECT_EQ(sigaction(SIGTERM, &before, nullptr), 0);
  EXPECT_NE(signal(SIGHUP, SIG_DFL), SIG_ERR);
}

TEST_F(TerminalMode, IsRawAgainWhenTheProcessIsContinued) {
  ASSERT_TRUE(setRawMode(1));
  const termios raw = mode();
  ASSERT_EQ(tcsetattr(STDIN_FILENO, TCSANOW, &original_), 0);
  errno = EXDEV;
  ASSERT_EQ(raise(SIGCONT), 0);
  EXPECT_EQ(errno, EXDEV);
  EXPECT_TRUE(sameMode(mode(), raw));
  {
    const OriginalMode suspended;
    ASSERT_EQ(raise(SIGCONT), 0);
    EXPECT_TRUE(sameMode(mode(), original_));
  }
}

TEST(TerminalModeWithoutTerminal, CannotBeSetAndChangesNothing) {
  const test_support::FedInput pipe;
  EXPECT_FALSE(setRawMode(1));
  struct sigaction current {};
  EXPECT_EQ(sigaction(SIGINT, nullptr, &current), 0);
  EXPECT_EQ(current.sa_handler, SIG_DFL);
  EXPECT_FALSE(setRawMode(0));
  { const OriginalMode suspended; }
}

using TerminalModeDeathTest = TerminalMode;

TEST_F(TerminalModeDeathTest, IsOriginalAfterAnAbort) {
  EXPECT_EXIT(
      {
        static_cast<void>(setRawMode(1));
        std::abort();
      },
      testing::KilledBySignal(SIGABRT), "");
  EXPECT_TRUE(sameMode(mode(), original_));
}

/// Whether the process can send itself a real-time signal: an emulator has some for its own use.
bool canBeRaised(int signal) {
  sigset_t set;
  sigset_t before;
  sigemptyset(&set);
  sigaddset(&set, signal);
  EXPECT_EQ(sigprocmask(SIG_BLOCK, &set, &before), 0);
  const bool raised = raise(signal) == 0;
  const timespec none{};
  EXPECT_EQ(sigtimedwait(&set, nullptr, &none), raised ? signal : -1);
  EXPECT_EQ(sigprocmask(SIG_SETMASK, &before, nullptr), 0);
  return raised;
}

/// The signals whose default action terminates a process and that can be handled.
std::vector<int> terminatingSignals() {
  std::vector<int> signals{SIGINT, SIGTERM, SIGHUP,  SIGQUIT, SIGSEGV,   SIGBUS,  SIGFPE,
                           SIGILL, SIGPIPE, SIGALRM, SIGUSR1, SIGUSR2,   SIGXCPU, SIGXFSZ,
                           SIGSYS, SIGTRAP, SIGIO,   SIGPWR,  SIGVTALRM, SIGPROF, SIGSTKFLT};
  for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal) {
    if (canBeRaised(signal)) {
      signals.push_back(signal);
    }
  }
  return signals;
}

TEST_F(TerminalModeDeathTest, IsOriginalAfterEverySignalThatTerminatesTheProcess) {
  for (const int signal : terminatingSignals()) {
    if (handled(signal)) {
      continue;  // By a sanitizer.
    }
    EXPECT_EXIT(
        {
          static_cast<void>(setRawMode(1));
          raise(signal);
        },
        testing::KilledBySignal(signal), "");
    EXPECT_TRUE(sameMode(mode(), original_)) << signal;
  }
}

/// Overflows the stack.
int recurse(int depth) {  // NOLINT(misc-no-recursion)
  std::array<volatile int, 1024> frame{};
  frame[static_cast<std::size_t>(depth) % frame.size()] = depth;
  return depth == -1 ? 0 : recurse(depth + 1) + frame[0];
}

TEST_F(TerminalModeDeathTest, IsOriginalAfterAStackOverflow) {
  const auto overflow = [] {
    // A sanitizer handles it.
    static_cast<void>(std::signal(SIGSEGV, SIG_DFL));
    const SignalStack signalStack;
    static_cast<void>(setRawMode(1));
    static_cast<void>(recurse(0));
  };
  EXPECT_EXIT(overflow(), testing::KilledBySignal(SIGSEGV), "");
  EXPECT_TRUE(sameMode(mode(), original_)) << "the main thread";
  EXPECT_EXIT(std::thread(overflow).join(), testing::KilledBySignal(SIGSEGV), "");
  EXPECT_TRUE(sameMode(mode(), original_)) << "another thread";
}

TEST(SignalStack, BelongsToItsThread) {
  stack_t stack{};
  {
    const SignalStack first;
    const SignalStack second;
    ASSERT_EQ(sigaltstack(nullptr, &stack), 0);
    EXPECT_EQ(stack.ss_flags & SS_DISABLE, 0);
  }
  ASSERT_EQ(sigaltstack(nullptr, &stack), 0);
  EXPECT_TRUE(test_support::sanitized || (stack.ss_flags & SS_DISABLE) != 0);
}

TEST_F(TerminalMode, LeavesEverySignalThatIsIgnoredIgnored) {
  std::vector<int> signals = terminatingSignals();
  signals.insert(signals.end(), {SIGTSTP, SIGTTIN, SIGTTOU});
  for (const int signal : signals) {
    if (handled(signal)) {
      continue;  // By a sanitizer.
    }
    ASSERT_NE(::signal(signal, SIG_IGN), SIG_ERR) << signal;
    ASSERT_TRUE(setRawMode(1));
    struct sigaction current {};
    EXPECT_EQ(sigaction(signal, nullptr, &current), 0);
    EXPECT_EQ(current.sa_handler, SIG_IGN) << signal;
    ASSERT_TRUE(setRawMode(0));
    ASSERT_NE(::signal(signal, SIG_DFL), SIG_ERR) << signal;
  }
}

}  // namespace
}  // namespace treescope
