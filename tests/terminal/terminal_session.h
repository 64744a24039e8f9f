#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>
#include <termios.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/process.h"
#include "tests/terminal/screen.h"

namespace terminal_test {

/// How long a test waits for what is expected immediately. Long, because sanitized builds
/// run on busy machines; a test that passes never waits this long.
inline constexpr std::chrono::milliseconds timeout{40000};

struct TerminalOptions {
  int rows = 24;
  int columns = 80;
  /// The working directory of the program; if empty, that of the test.
  std::string directory = {};
};

/// A program on a terminal of its own, as a user sees it: keys are typed, and the screen
/// shows the output.
///
/// The program leads a session with this controlling terminal, so Ctrl-C and Ctrl-\ reach
/// it. Every wait is for an event: output, capacity for keys, or the end of the program. A
/// wait that times out fails with a picture of the screen. Throws std::system_error if the
/// terminal or the program cannot be set up. For one thread.
class TerminalSession {
 public:
  explicit TerminalSession(const std::vector<std::string>& command,
                           const TerminalOptions& options = {});

  /// Hangs up, and kills the program if it is still running.
  ~TerminalSession();

  TerminalSession(const TerminalSession&) = delete;
  TerminalSession& operator=(const TerminalSession&) = delete;

  /// Types all of `keys`, as fast as the program reads them.
  testing::AssertionResult type(std::string_view keys);

  /// Reads output until `expected` returns true. `what` describes it in the error message.
  testing::AssertionResult waitFor(const std::function<bool(const Screen&)>& expected,
                                   const std::string& what);

  /// Waits until the cursor's line is `line`, in which "|" stands for the cursor.
  testing::AssertionResult showsLine(const std::string& line);

  /// Waits until the whole screen is `text`, as `Screen::text` returns it.
  testing::AssertionResult showsScreen(const std::string& text);

  /// Waits until a row of the screen contains `text`.
  testing::AssertionResult showsText(const std::string& text);

  /// Waits until the bytes from `mark` on contain `text`.
  testing::AssertionResult writes(const std::string& text, std::size_t mark);

  /// The screen after the output that has been read so far.
  [[nodiscard]] const Screen& screen() const { return screen_; }

  /// Only counts output from now on: neither the screen nor the bytes are updated.
  void lookAway() { watched_ = false; }

  /// The number of bytes that the program has written so far.
  [[nodiscard]] std::size_t mark() const { return count_; }

  /// The bytes that it has written since `mark`.
  [[nodiscard]] std::string bytesSince(std::size_t mark) const { return bytes_.substr(mark); }

  /// Changes the size of the terminal, as when the user resizes its window.
  void resize(int rows, int columns);

  /// Closes the terminal while the program runs, as when a connection is lost.
  void hangUp();

  /// Waits for the end of the program. No value if it does not end in time.
  std::optional<test_support::ExitStatus> waitForExit();

  /// The current mode of the terminal.
  [[nodiscard]] termios mode() const;

  void signal(int number);
  [[nodiscard]] pid_t pid() const { return pid_; }

  /// A description for a failed test: the screen, the last bytes, whether the program runs.
  [[nodiscard]] std::string describe() const;

 private:
  using Clock = std::chrono::steady_clock;

  void open(const TerminalOptions& options);
  void spawn(const std::vector<std::string>& command, const TerminalOptions& options);
  bool pump(Clock::time_point deadline, bool untilWritable);
  bool take();
  void takeRest();
  void accept(std::string_view bytes);
  bool reap();

  Screen screen_;
  std::string bytes_;
  std::size_t count_ = 0;
  bool watched_ = true;
  int master_ = -1;
  int slave_ = -1;
  std::string device_;
  pid_t pid_ = -1;
  int pidDescriptor_ = -1;
  std::optional<test_support::ExitStatus> status_;
};

/// Whether two modes are equal in every flag and control character.
bool sameMode(const termios& one, const termios& other);

}  // namespace terminal_test
