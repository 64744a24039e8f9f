#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Runs a program for a test and talks with it over pipes.
///
/// Every wait has a deadline and is for an event: a line, the end of the program.
/// What cannot be had in time is nothing, and the test says what it missed; a
/// program that cannot be started is a `std::system_error`. For one thread.
namespace test_support {

/// How long a test waits for what ought to come at once. Generous, since the
/// sanitized builds run on busy machines; nobody waits for it in a test that
/// passes.
inline constexpr std::chrono::milliseconds timeout{20000};

/// How a program ended: by itself with `code`, or by the signal `signal`.
struct ExitStatus {
  int code = 0;
  int signal = 0;
  bool operator==(const ExitStatus&) const = default;
};

struct ProcessOptions {
  /// "NAME=value"; nothing: the test's own environment.
  std::optional<std::vector<std::string>> environment;
  /// Where the program starts; empty: where the test runs.
  std::string directory;
  /// Whether what it writes to standard error is taken as output.
  bool mergeErrors = false;
};

class Process {
 public:
  /// Starts `command[0]`, found by PATH where it holds no "/", with the other
  /// words as its arguments. It inherits no descriptor but its three pipes, blocks
  /// no signal and has SIGPIPE at its default.
  explicit Process(const std::vector<std::string>& command, const ProcessOptions& options = {});

  /// Ends a program that still runs, with SIGTERM and, where that does not help
  /// soon, SIGKILL; and takes its status.
  ~Process();

  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }

  /// Writes all of `text` to the program's standard input, taking what it writes
  /// meanwhile. False where it reads no more or not in time.
  bool write(std::string_view text, std::chrono::milliseconds limit = timeout);

  void closeInput();

  /// The next line of output without its line feed; the last one may lack it.
  /// Nothing at the end of the output or when the time is over.
  std::optional<std::string> readLine(std::chrono::milliseconds limit = timeout);

  /// Reads lines until one equals `line`; false where none did.
  bool waitForLine(std::string_view line, std::chrono::milliseconds limit = timeout);

  /// Reads until the output that no `readLine` has taken holds `text`.
  bool waitForOutput(std::string_view text, std::chrono::milliseconds limit = timeout);

  /// Closes the input and reads both outputs to their ends; nothing when the
  /// program has not ended within `limit`.
  std::optional<ExitStatus> finish(std::chrono::milliseconds limit = timeout);

  /// Waits for the end of the program, taking what it writes meanwhile, the
  /// input left open.
  std::optional<ExitStatus> waitForExit(std::chrono::milliseconds limit = timeout);

  void signal(int number);

  /// What it has written that has been read from its pipe and that no `readLine`
  /// has taken.
  [[nodiscard]] const std::string& output() const { return output_.text; }
  /// The same of standard error; empty where that is merged.
  [[nodiscard]] const std::string& errors() const { return errors_.text; }

 private:
  using Clock = std::chrono::steady_clock;

  /// The reading end of one of the program's outputs.
  struct Stream {
    int descriptor = -1;
    std::string text;
    void take();
    void close();
  };

  /// Waits until `deadline` for output, room in the input where `forInput`, or
  /// the end of the program where `forExit`, and takes what there is to read.
  /// False when the time is over.
  bool pump(Clock::time_point deadline, bool forInput, bool forExit);
  std::optional<ExitStatus> reap();

  pid_t pid_ = -1;
  int pidDescriptor_ = -1;
  int input_ = -1;
  Stream output_;
  Stream errors_;
  std::optional<ExitStatus> status_;
};

/// What a program that ran to its end left.
struct Finished {
  ExitStatus status;
  std::string output;
  std::string errors;
};

/// Runs `command` with `input` to its end; a program that does not end within
/// `limit` is killed and gives a `std::runtime_error` with what it wrote.
Finished run(const std::vector<std::string>& command, std::string_view input = {},
             const ProcessOptions& options = {}, std::chrono::milliseconds limit = timeout);

}  // namespace test_support
