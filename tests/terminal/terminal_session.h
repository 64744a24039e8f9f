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

/// How long a test waits for what ought to come at once. Generous, since the
/// sanitized builds run on busy machines; nobody waits for it in a test that
/// passes.
inline constexpr std::chrono::milliseconds timeout{40000};

struct TerminalOptions {
  int rows = 24;
  int columns = 80;
  /// Where the program starts; empty: where the test runs.
  std::string directory = {};
};

/// A program on a terminal of its own, as a person has it before them: keys go in,
/// the screen shows what comes out.
///
/// The program leads a session whose controlling terminal this is, so Ctrl-C and
/// Ctrl-\ reach it. Every wait is for an event: output, room for keys, the end of
/// the program; one that is in vain fails with a picture of the screen. What
/// cannot be set up is a `std::system_error`. For one thread.
class TerminalSession {
 public:
  explicit TerminalSession(const std::vector<std::string>& command,
                           const TerminalOptions& options = {});

  /// Hangs up, and kills a program that still runs.
  ~TerminalSession();

  TerminalSession(const TerminalSession&) = delete;
  TerminalSession& operator=(const TerminalSession&) = delete;

  /// Types all of `keys`, as fast as the program takes them.
  testing::AssertionResult type(std::string_view keys);

  /// Reads output until `wanted`, called `what` when it fails, holds.
  testing::AssertionResult waitFor(const std::function<bool(const Screen&)>& wanted,
                                   const std::string& what);

  /// Waits until the cursor's line is `line`, in which "|" stands for the cursor.
  testing::AssertionResult showsLine(const std::string& line);

  /// Waits until the whole screen is `text`, as `Screen::text` gives it.
  testing::AssertionResult showsScreen(const std::string& text);

  /// Waits until some row of the screen holds `text`.
  testing::AssertionResult showsText(const std::string& text);

  /// Waits until the bytes from `mark` on hold `text`.
  testing::AssertionResult writes(const std::string& text, std::size_t mark);

  /// The screen as far as output has been read.
  [[nodiscard]] const Screen& screen() const { return screen_; }

  /// From now on output is counted and thrown away: neither the screen nor the
  /// bytes are kept.
  void lookAway() { watched_ = false; }

  /// How many bytes the program has written so far.
  [[nodiscard]] std::size_t mark() const { return count_; }

  /// What it has written since `mark`, byte for byte.
  [[nodiscard]] std::string bytesSince(std::size_t mark) const { return bytes_.substr(mark); }

  /// Changes the size of the terminal, as a person does who drags a corner.
  void resize(int rows, int columns);

  /// Closes the terminal under the program, as a lost connection does.
  void hangUp();

  /// Waits for the end of the program; nothing where it does not end.
  std::optional<test_support::ExitStatus> waitForExit();

  /// The terminal's mode as it is now.
  [[nodiscard]] termios mode() const;

  void signal(int number);
  [[nodiscard]] pid_t pid() const { return pid_; }

  /// Why a test failed: the screen, the last bytes, whether the program runs.
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

/// Whether two modes are alike in every flag and character.
bool sameMode(const termios& one, const termios& other);

}  // namespace terminal_test
