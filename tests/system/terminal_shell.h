#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The built shell on a terminal of the test's own, as a person has it, but that
/// the terminal neither echoes nor changes what passes.
///
/// Every wait is for bytes and has a deadline, behind which the test fails and the
/// bytes at hand are given. For one thread.
class TerminalShell {
 public:
  struct Size {
    unsigned short columns;
    unsigned short rows;
  };

  /// Starts the shell and connects it to `server`. A terminal or a program that
  /// cannot be had is a `std::system_error`.
  explicit TerminalShell(std::string server, Size size = {80, 24});

  /// Types "q" and takes the program's status; one that does not end is killed
  /// and fails the test.
  ~TerminalShell();

  TerminalShell(const TerminalShell&) = delete;
  TerminalShell& operator=(const TerminalShell&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }

  void type(std::string_view bytes);

  /// Types `line` and Return, and takes what these leave on the screen: all that
  /// comes then has been printed by the command.
  void enter(const std::string& line);

  /// Stops the program, and waits until it stands; lets it go on.
  void stop();
  void resume();

  /// Runs `line` and gives what it printed: everything behind the line that was
  /// typed and before that of the next prompt.
  std::string run(const std::string& line);

  /// Waits until `text` has come and gives everything through its end.
  std::string readThrough(const std::string& text);

 private:
  using Clock = std::chrono::steady_clock;

  void start(Size size);
  /// Takes what comes until `deadline`; false where nothing does or can.
  bool receive(Clock::time_point deadline);
  /// Reads until `found` gives a length, and takes that many bytes.
  std::string readUntil(const std::function<std::optional<std::size_t>()>& found);
  /// Where a line with the current directory begins, and its prompt ends.
  struct Report {
    std::size_t begin;
    std::size_t end;
  };
  [[nodiscard]] std::optional<Report> findReport() const;

  const std::string server_;
  int terminal_ = -1;
  pid_t pid_ = -1;
  std::string output_;
};

/// The bytes that the shell writes in batch mode for `commands` in the tree of
/// `server`; anything else than a clean end fails the test.
std::string batchOutput(const std::string& server, const std::string& commands);

/// How an interactive shell writes `text` as a line without marks.
std::string plainLine(std::string_view text);

/// The same of several.
std::string plainLines(const std::vector<std::string>& lines);

/// Whether `bytes` are `lines`, behind at most a rest of the line before them:
/// what the prompt left there.
bool endsWithJust(std::string_view bytes, std::string_view lines);
