#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>
#include <termios.h>

#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/pseudo_terminal.h"
#include "tests/support/screen.h"
#include "tests/support/terminal_job.h"

namespace test_support {

struct TerminalOptions {
  int rows = 24;
  int columns = 80;
  /// Where the program starts; empty: where the test runs.
  std::string directory = {};
  /// Whether the program has the terminal's foreground from the start.
  bool foreground = true;
  /// A signal that the program ignores from the start; 0: none.
  int ignoredSignal = 0;
  /// Whether the terminal passes every byte unchanged, and echoes none.
  bool passesBytes = false;
  /// Whether another program has left the terminal non-blocking.
  bool nonBlocking = false;
};

/// A program on its own terminal, as a user has it: keys go in, and a screen shows
/// the output. The program is a job, which can be stopped and continued.
///
/// Every wait is for a condition, at most for `timeout`. One that is not met fails
/// with a picture of the screen and the last bytes. What cannot be set up throws
/// `std::system_error`. For one thread.
class TerminalSession {
 public:
  explicit TerminalSession(const std::vector<std::string>& command,
                           const TerminalOptions& options = {});

  /// Kills a program that still runs.
  ~TerminalSession();

  TerminalSession(const TerminalSession&) = delete;
  TerminalSession& operator=(const TerminalSession&) = delete;

  /// Types all of `keys`, as fast as the program reads them.
  testing::AssertionResult type(std::string_view keys);

  // What the screen shows.

  /// Reads output until `condition`, called `what` when it fails, holds.
  testing::AssertionResult waitFor(const std::function<bool(const Screen&)>& condition,
                                   const std::string& what);

  /// Waits until the cursor's line is `line`, in which "|" is the cursor.
  testing::AssertionResult showsLine(const std::string& line);

  /// Waits until the whole screen is `text`, as `Screen::text` returns it.
  testing::AssertionResult showsScreen(const std::string& text);

  /// Waits until a row of the screen contains `text`.
  testing::AssertionResult showsText(const std::string& text);

  /// The screen after the output that has been read.
  [[nodiscard]] const Screen& screen() const { return screen_; }

  // What the program writes, byte for byte.

  /// How many bytes the program has written so far.
  [[nodiscard]] std::size_t mark() const { return count_; }

  /// The bytes since `mark`.
  [[nodiscard]] std::string bytesSince(std::size_t mark) const { return bytes_.substr(mark); }

  /// Waits until the bytes since `mark` contain `text`.
  testing::AssertionResult writes(const std::string& text, std::size_t mark);

  /// Waits until the bytes after those that were read contain `text`, and reads
  /// through its end.
  testing::AssertionResult readThrough(const std::string& text);

  /// The bytes after those that were read; `read` takes the first of them.
  [[nodiscard]] std::string_view unread() const;
  std::string read(std::size_t length);

  /// From now on output is counted and discarded: neither the screen nor the bytes
  /// change.
  void discardOutput() { discards_ = true; }

  // The program as a job.

  [[nodiscard]] pid_t pid() const { return job_.pid(); }

  /// Sends a signal to the program, unless it has ended.
  void signal(int number) { job_.signal(number); }

  /// Waits for the next change of the program as waitpid(2) reports it: stopped,
  /// continued, ended. Nothing if there is none.
  std::optional<int> nextStatus();

  /// Waits for the end of the program; nothing if it does not end.
  std::optional<ExitStatus> waitForExit();

  /// Gives the program the foreground, and continues it.
  void continueInForeground() { job_.continueInForeground(); }

  /// Takes the foreground from the program.
  void moveToBackground() { job_.moveToBackground(); }

  // The terminal.

  [[nodiscard]] termios mode() const;
  void setMode(const termios& mode);

  /// Changes the size of the terminal, as a user does who drags a corner.
  void resize(int rows, int columns);

  /// Closes the terminal under the program, as a lost connection does: its input
  /// ends. The SIGHUP that a login shell then sends is for `signal`.
  void hangUp();

  /// Why a test failed: the screen, the last bytes, the state of the program.
  [[nodiscard]] std::string describe() const;

 private:
  using Clock = std::chrono::steady_clock;

  bool pump(Clock::time_point deadline, bool untilWritable);
  bool takeOutput();
  void takeStatuses();
  void takeRest();
  void accept(std::string_view bytes);
  [[nodiscard]] bool hasEnded() const { return job_.endStatus().has_value(); }

  Screen screen_;
  std::string bytes_;
  std::size_t count_ = 0;
  std::size_t read_ = 0;
  bool discards_ = false;
  PseudoTerminal terminal_;
  TerminalJob job_;
  std::deque<int> statuses_;
};

}  // namespace test_support
