#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bench/served_tree.h"

/// Programs as the comparison runs them: found on the path, ended with this one.
/// What cannot be done is a `std::runtime_error`.
namespace bench::peers {

using Words = std::vector<std::string>;

/// What a program that ran to its end wrote and took.
struct Ended {
  double seconds;         ///< until it had been waited for
  std::size_t lines;      ///< ends of lines in its output
  std::size_t bytes;      ///< of its output
  std::size_t peakBytes;  ///< of memory in use at once; 0 where it was not asked for
  std::string output;     ///< at most the first 4096 bytes
};

/// Runs `words` to its end, its output going into an unnamed file; its status must
/// be 0.
Ended runToEnd(const Words& words);

/// The same for the memory that it takes, which the faster way of starting a program
/// does not tell.
Ended runForMemory(const Words& words);

/// Memory of a process (proc(5), /proc/PID/status).
struct Memory {
  std::size_t now;
  std::size_t peak;
};
Memory memoryOf(pid_t pid);

/// A program that runs until this object goes, its output at the other end of a
/// pipe. What it writes to standard error goes there too.
class Running {
 public:
  /// Where its input comes from.
  enum class Input { nothing, typed };

  explicit Running(const Words& words, Input input = Input::nothing);
  ~Running();
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  [[nodiscard]] pid_t pid() const { return child_->pid(); }

  /// Waits until it has written `text` since the last `clear`; throws at the end of
  /// its output.
  void await(std::string_view text);

  /// Types a line, where its input is typed.
  void type(const std::string& line) const;

  /// Forgets what it has written, and what of that is still in the pipe.
  void clear();

 private:
  int input_ = -1;
  int output_ = -1;
  std::string written_;
  std::unique_ptr<Child> child_;
};

/// Waits until somebody serves the Unix socket at `path`, 10 seconds at most.
void awaitSocket(const std::string& path);

/// The directory of this run's sockets and files; gone with this object.
class Directory {
 public:
  Directory();
  ~Directory();
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  [[nodiscard]] std::string path(std::string_view file) const;
  /// Writes a file anew; returns its path.
  [[nodiscard]] std::string write(std::string_view file, std::string_view text) const;

 private:
  std::string path_;
};

}  // namespace bench::peers
