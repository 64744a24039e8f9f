#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bench/served_tree.h"

/// The built programs, as benchmarks run them. What cannot be started is a
/// `std::runtime_error`.
namespace bench {

/// The built model server with `arguments`, and `--name NAME` of its own.
/// Connectable once constructed; bound to `processor` (see `pinTo`), where one is
/// given.
class ServerProgram {
 public:
  explicit ServerProgram(std::vector<std::string> arguments,
                         std::optional<unsigned> processor = std::nullopt);

  [[nodiscard]] const std::string& name() const { return name_; }

  /// How often it has written anything so far (proc(5), /proc/PID/io).
  [[nodiscard]] std::size_t writes() const;

  /// How much of its memory is in use, in bytes: the most so far, and now.
  [[nodiscard]] double peakBytes() const { return bytesOf("VmHWM:"); }
  [[nodiscard]] double cachedBytes() const { return bytesOf("VmRSS:"); }

 private:
  /// A size among /proc/PID/status (proc(5)).
  [[nodiscard]] double bytesOf(std::string_view name) const;

  std::string name_;
  std::unique_ptr<Child> child_;
};

/// What a program that ran to its end took.
struct Run {
  double seconds;
  /// Of a processor, without the server's.
  double processorSeconds;
  /// The largest part of its memory that was in use at once.
  double peakBytes;
};

/// Runs the built shell with `-c commands`, its output going into an unnamed file;
/// throws where its status is not 0 or it wrote no line for each of `lines`.
Run runShell(const std::string& commands, std::size_t lines);

/// The built shell at the other end of two pipes, reading lines; bound to
/// `processor`.
class TypedShell {
 public:
  explicit TypedShell(unsigned processor);
  ~TypedShell();
  TypedShell(const TypedShell&) = delete;
  TypedShell& operator=(const TypedShell&) = delete;

  /// Types `line` and waits for the prompt behind what it prints.
  void type(const std::string& line);

  /// Forgets what the shell has written so far.
  void clear();

  /// Waits until the shell has written `text` since the last `clear`; false at the
  /// end of its output.
  bool await(std::string_view text);

 private:
  int input_ = -1;
  int output_ = -1;
  std::string written_;
  std::unique_ptr<Child> child_;
};

}  // namespace bench
