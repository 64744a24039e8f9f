#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/terminal_session.h"

/// The built shell on a terminal, connected to a server, whose output is read byte for
/// byte: the terminal neither echoes nor changes what passes.
///
/// A wait that is not met fails the test and returns the bytes so far. For one thread.
class TerminalShell {
 public:
  struct Size {
    int columns;
    int rows;
  };

  /// Starts the shell and connects it to `server`. Throws `std::system_error` if there
  /// is no terminal.
  explicit TerminalShell(std::string server, Size size = {80, 24});

  /// Types "q"; the shell must end with status 0.
  ~TerminalShell();

  TerminalShell(const TerminalShell&) = delete;
  TerminalShell& operator=(const TerminalShell&) = delete;

  void type(std::string_view bytes) { EXPECT_TRUE(session_.type(bytes)); }

  /// Types `line` and Return, and reads what the line editor prints for them: the
  /// command prints everything after that.
  void enter(const std::string& line);

  /// Stops the program and waits until it has stopped.
  void stop();
  /// Continues the program.
  void resume() { session_.signal(SIGCONT); }

  /// Runs `line` and returns what it printed: everything between the line that was
  /// typed and the line of the next prompt.
  std::string run(const std::string& line);

  /// Waits for `text` and returns everything through its end.
  std::string readThrough(const std::string& text);

 private:
  /// Waits until `find` returns a length, and reads as many bytes.
  std::string readUntil(const std::function<std::optional<std::size_t>()>& find,
                        const std::string& what);
  /// Where a line with the current directory begins, and where the prompt after it
  /// ends.
  struct Report {
    std::size_t begin;
    std::size_t end;
  };
  [[nodiscard]] std::optional<Report> findReport() const;

  const std::string server_;
  test_support::TerminalSession session_;
};

/// The bytes that the shell writes in batch mode for `commands` in the tree of
/// `server`. Fails the test if the shell does not end with status 0.
std::string batchOutput(const std::string& server, const std::string& commands);

/// The bytes that an interactive shell writes for `text` as a line without marks.
std::string plainLine(std::string_view text);

/// The same for several lines.
std::string plainLines(const std::vector<std::string>& lines);

/// Whether `bytes` are `lines`, after at most the end of another line, which the
/// prompt has left.
bool endsWithJust(std::string_view bytes, std::string_view lines);
