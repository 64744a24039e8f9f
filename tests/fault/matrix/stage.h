#pragma once

#include <sys/types.h>
#include <termios.h>

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/fault/matrix/injection.h"
#include "tests/support/descriptor.h"
#include "tests/support/pseudo_terminal.h"

/// The programs of one run, beside which a call of one of them fails.
namespace fault_matrix {

/// Throws std::system_error: `what`, a system call, failed with errno.
[[noreturn]] void throwError(const char* what);

/// How a program ended: by itself with `code`, or by the signal `signal`.
struct ExitStatus {
  int code = 0;
  int signal = 0;
  bool operator==(const ExitStatus&) const = default;
};

/// A program that has been started. It lives as long as its stage.
struct Program {
  std::vector<std::string> command;
  pid_t pid = -1;
  test_support::Descriptor pidDescriptor;
  test_support::Descriptor output;  ///< the pipe or the terminal that it writes to
  test_support::Descriptor errors;
  std::string written;   ///< what it has written to standard output
  std::string reported;  ///< and to standard error
  std::optional<ExitStatus> status;
  std::optional<Injection> injection;
};

class Stage {
 public:
  using Milliseconds = std::chrono::milliseconds;

  /// How long a run waits for what must happen: longer than every time-out of the
  /// programs.
  static constexpr Milliseconds limit{10000};

  Stage() = default;
  /// Kills what still runs.
  ~Stage();
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  /// Starts `command` with no input, in the directory of the run. With `fault` that call
  /// fails, or all calls are recorded. Throws std::system_error.
  Program& start(const std::vector<std::string>& command, const Fault* fault = nullptr);

  /// The same, on a terminal of its own, which `terminal` then is; what it writes there is
  /// its standard output.
  Program& startOnTerminal(const std::vector<std::string>& command, const Fault* fault,
                           test_support::PseudoTerminal& terminal);

  /// Serves all programs until `condition` holds; false if it does not before the limit.
  bool waitUntil(const std::function<bool()>& condition, Milliseconds within = limit);

  /// Waits for the end of `program`; one that does not end is a failure, and killed.
  bool waitForEnd(Program& program);

  /// Types `keys` on the terminal of `program`; serves all programs until they are taken.
  void type(Program& program, std::string_view keys);

  /// Records that something is wrong. The first failure says most.
  void fail(const std::string& what);
  void expect(bool condition, const std::string& what);
  [[nodiscard]] const std::vector<std::string>& failures() const { return failures_; }

  /// Every program with its end and what it has written.
  [[nodiscard]] std::string describe() const;

 private:
  using Clock = std::chrono::steady_clock;

  Program& launch(const std::vector<std::string>& command, const Fault* fault,
                  const std::string& terminal);
  void pump(Milliseconds wait);
  static void take(test_support::Descriptor& from, std::string& to);
  static void reap(Program& program);

  std::deque<Program> programs_;
  std::vector<std::string> failures_;
};

/// The names in `directory`, sorted.
std::vector<std::string> namesIn(const std::string& directory);

/// The contents of `file`; empty if there is none.
std::string contentsOf(const std::string& file);
void writeFile(const std::string& file, std::string_view contents);

/// `text` on one line, cut to what a report shows.
std::string shown(std::string_view text);

}  // namespace fault_matrix
