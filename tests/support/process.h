#pragma once

#include <sys/types.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/descriptor.h"

/// Runs a program for a test and exchanges text with it over pipes.
///
/// Every wait has a time limit and is for an event: a line, the end of the program.
/// A wait that is not met returns nothing; a program that cannot be started throws
/// `std::system_error`. For one thread.
namespace test_support {

/// Throws std::system_error: `what`, a system call, failed with the code `error`.
[[noreturn]] void throwError(const char* what, int error = errno);

/// How long a test waits for a condition that should hold soon. The one time limit of
/// the tests: long, since sanitized builds run on busy machines, and a test that passes
/// never waits for it.
inline constexpr std::chrono::milliseconds timeout{40000};

/// The same as poll(2) and event managers take it.
inline constexpr int timeoutMilliseconds = static_cast<int>(timeout.count());

/// Waits until `condition()`, for one without an event to wait for, such as the state of
/// another process. False after `timeout`.
bool eventually(const std::function<bool()>& condition);

/// The time until `deadline` in milliseconds, rounded up, as poll(2) takes it; 0 when
/// it is over.
int millisecondsUntil(std::chrono::steady_clock::time_point deadline);

/// While it exists, a write of this thread to a pipe whose reader has gone fails with EPIPE and
/// does not end the test. The disposition of SIGPIPE, which belongs to the process, stays.
class BlockedPipeSignal {
 public:
  BlockedPipeSignal();
  ~BlockedPipeSignal();
  BlockedPipeSignal(const BlockedPipeSignal&) = delete;
  BlockedPipeSignal& operator=(const BlockedPipeSignal&) = delete;

 private:
  sigset_t set_{};
  sigset_t before_{};
};

/// Whether this is a build with the address or the thread sanitizer, which takes more
/// time and memory.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TREESCOPE_SANITIZED
#endif
#endif
#if defined(TREESCOPE_SANITIZED) || defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif

/// Whether this is a build with the thread sanitizer. It keeps a signal from a thread that
/// waits inside system(3) until that returns.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TREESCOPE_THREAD_SANITIZED
#endif
#endif
#ifdef TREESCOPE_THREAD_SANITIZED
inline constexpr bool threadSanitized = true;
#else
inline constexpr bool threadSanitized = false;
#endif

/// Whether a sanitizer checks virtual calls, for which it needs descriptors: it makes a
/// pipe to probe memory, and takes an error for an invalid object.
#if defined(__has_feature)
#if __has_feature(undefined_behavior_sanitizer)
#define TREESCOPE_CHECKS_VIRTUAL_CALLS
#endif
#endif
#ifdef TREESCOPE_CHECKS_VIRTUAL_CALLS
inline constexpr bool checksVirtualCalls = true;
#else
inline constexpr bool checksVirtualCalls = false;
#endif

/// How a program ended: by itself with `code`, or by the signal `signal`.
struct ExitStatus {
  int code = 0;
  int signal = 0;
  bool operator==(const ExitStatus&) const = default;
};

struct ProcessOptions {
  /// "NAME=value"; nothing: the environment of the test.
  std::optional<std::vector<std::string>> environment = {};
  /// Where the program starts; empty: where the test runs.
  std::string directory = {};
  /// Whether its standard error is part of its output.
  bool mergeErrors = false;
  /// Whether its standard output is a non-blocking pipe, of the smallest size.
  bool nonBlockingOutput = false;
  /// Whether what it has started is killed with it, as the programs of a shell's pipeline.
  bool ownGroup = false;
};

class Process {
 public:
  /// Starts `command[0]`, found by PATH if it contains no "/", with the other words
  /// as its arguments. It inherits no descriptor but its three pipes, blocks no signal
  /// and has the default action for SIGPIPE.
  explicit Process(const std::vector<std::string>& command, const ProcessOptions& options = {});

  /// Ends a program that still runs, with SIGTERM and, if that does not end it soon,
  /// SIGKILL; and reaps it. A group of its own is killed at once.
  ~Process();

  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }

  /// Writes all of `text` to the program's standard input, and meanwhile reads its
  /// output. False if it has closed its input or does not read in time.
  bool write(std::string_view text, std::chrono::milliseconds limit = timeout);

  void closeInput();

  /// The next line of output without its line feed; the last one may have none.
  /// Nothing at the end of the output or after `limit`.
  std::optional<std::string> readLine(std::chrono::milliseconds limit = timeout);

  /// Reads lines until one equals `line`; false if none does.
  bool waitForLine(std::string_view line, std::chrono::milliseconds limit = timeout);

  /// Waits until the output that no `readLine` has returned contains `text`.
  bool waitForOutput(std::string_view text, std::chrono::milliseconds limit = timeout);

  /// Closes the input and reads both outputs to their ends; nothing if the program
  /// has not ended within `limit`.
  std::optional<ExitStatus> finish(std::chrono::milliseconds limit = timeout);

  /// Waits for the end of the program, and meanwhile reads its output. The input stays
  /// open.
  std::optional<ExitStatus> waitForExit(std::chrono::milliseconds limit = timeout);

  void signal(int number);

  /// The output that has been read from the pipe and that no `readLine` has returned.
  [[nodiscard]] const std::string& output() const { return output_.text; }
  /// The same of standard error; empty if that is merged into the output.
  [[nodiscard]] const std::string& errors() const { return errors_.text; }

 private:
  using Clock = std::chrono::steady_clock;

  void killGroup();

  /// The reading end of one of the program's outputs.
  struct Stream {
    Descriptor descriptor;
    std::string text;
    void take();
  };

  /// Waits until `deadline` for output, space in the input if `forInput`, or the end
  /// of the program if `forExit`, and reads the output. False when the time is over.
  bool pump(Clock::time_point deadline, bool forInput, bool forExit);
  std::optional<ExitStatus> reap();

  bool ownGroup_;
  pid_t pid_ = -1;
  Descriptor pidDescriptor_;
  Descriptor input_;
  Stream output_;
  Stream errors_;
  std::optional<ExitStatus> status_;
};

/// The programs of the build, or those that the environment variables TREESCOPE_TEST_SHELL and
/// TREESCOPE_TEST_SERVER name, for example ones of another machine with their emulator. A test
/// program that uses one depends on it.
std::string treescopeProgram();
std::string modelsrvdProgram();

/// The top of the source tree and of the build tree.
std::string sourceDirectory();
std::string buildDirectory();

/// The result of a program that ran to its end.
struct Finished {
  ExitStatus status;
  std::string output;
  std::string errors;
};

/// Runs `command` with `input` to its end. A program that does not end within `limit`
/// is killed; the `std::runtime_error` then contains its output.
Finished run(const std::vector<std::string>& command, std::string_view input = {},
             const ProcessOptions& options = {}, std::chrono::milliseconds limit = timeout);

/// The number after the word `key` in /proc/`pid`/`file`; fails the test if there is
/// none.
long procNumber(pid_t pid, const std::string& file, const std::string& key);

}  // namespace test_support
