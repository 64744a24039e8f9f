#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bench/child_process.h"

/// The programs that the benchmarks run. A program that does not start or fails is reported as
/// a `std::runtime_error`.
namespace bench {

/// The program and its arguments. The program is a path; PATH is not searched.
using CommandLine = std::vector<std::string>;

/// The path of modelsrvd in the build directory.
extern const char* const builtServer;

/// A model server, started with `arguments` and a `--name NAME` of its own. Accepts
/// connections once constructed; bound to `processor` (see `pinTo`) if one is given.
class ServerProgram {
 public:
  explicit ServerProgram(const CommandLine& arguments,
                         std::optional<unsigned> processor = std::nullopt,
                         const std::string& program = builtServer);

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] pid_t process() const { return child_->pid(); }

  /// The number of its write calls so far (proc(5), /proc/PID/io).
  [[nodiscard]] std::size_t writes() const;

  /// Its resident memory in bytes: the peak so far, and the current size.
  [[nodiscard]] double peakBytes() const { return bytesOf("VmHWM:"); }
  [[nodiscard]] double residentBytes() const { return bytesOf("VmRSS:"); }

 private:
  /// A size in /proc/PID/status (proc(5)).
  [[nodiscard]] double bytesOf(std::string_view name) const;

  std::string name_;
  std::unique_ptr<Child> child_;
};

/// What a program used until it exited, and what it wrote.
struct Run {
  double seconds;           ///< from before its start until it was waited for
  double processorSeconds;  ///< user and system time, without that of a server
  double peakBytes;         ///< peak of its resident set; see `Launch`
  std::size_t lines;        ///< number of newlines in its output
  std::string output;       ///< the first 4096 bytes
};

/// An unnamed file in memory for a program's output.
class OutputFile {
 public:
  OutputFile();
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  [[nodiscard]] int descriptor() const { return descriptor_; }
  /// In bytes.
  [[nodiscard]] std::size_t size() const;
  /// The number of newlines in the bytes [begin, end).
  [[nodiscard]] std::size_t lines(std::size_t begin, std::size_t end) const;
  /// The first 4096 bytes.
  [[nodiscard]] std::string start() const;

 private:
  int descriptor_;
};

/// A program that runs until it is ended by the destructor and writes into a file in memory.
class PrintingProgram {
 public:
  explicit PrintingProgram(const CommandLine& words);

  /// Waits for the first byte; throws after 20 seconds.
  void awaitOutput() const;

  [[nodiscard]] const OutputFile& output() const { return output_; }

 private:
  OutputFile output_;
  Child child_;
};

/// How a program is started. `spawn` (posix_spawn(3)) adds the least time, but the peak of the
/// resident set is then at least that of this process. `fork` measures the peak.
enum class Launch { spawn, fork };

/// Runs a program until it exits, its standard output going to a file in memory. Throws if its
/// exit status is not 0.
Run runProgram(const CommandLine& words, Launch launch);

/// Runs the built shell with `-c commands` by `Launch::fork`. Throws if it wrote fewer than
/// `lines` lines.
Run runShell(const std::string& commands, std::size_t lines);

/// The built shell, interactive, with pipes for input and output; bound to `processor`.
class TypedShell {
 public:
  explicit TypedShell(unsigned processor);
  ~TypedShell();
  TypedShell(const TypedShell&) = delete;
  TypedShell& operator=(const TypedShell&) = delete;

  /// Types `line` and waits for the next prompt.
  void type(const std::string& line);

  /// Discards what the shell has written so far.
  void clear();

  /// Waits until the shell has written `text` since the last `clear`; false at the end of its
  /// output.
  [[nodiscard]] bool await(std::string_view text);

 private:
  int input_ = -1;
  int output_ = -1;
  std::string written_;
  std::unique_ptr<Child> child_;
};

/// Waits until `text` has been read from `descriptor` into `written`; false at its end.
[[nodiscard]] bool readUntil(int descriptor, std::string& written, std::string_view text);

/// Reads and discards what `descriptor` holds, without waiting.
void discardInput(int descriptor);

}  // namespace bench
