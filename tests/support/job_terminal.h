#pragma once

#include <sys/types.h>
#include <termios.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/process.h"

namespace test_support {

/// A program as a job on a terminal of its own, the way a login shell starts one:
/// it has a process group, which can be stopped, continued and brought to the
/// foreground, and somebody who waits for it.
///
/// Every wait has a deadline and is for an event. What cannot be set up is a
/// `std::system_error`. For one thread, in a process that has no other.
class JobTerminal {
 public:
  struct Options {
    /// Whether the job has the terminal's foreground from the start.
    bool foreground = true;
    /// A signal that the job ignores from the start; 0: none.
    int ignored = 0;
  };

  explicit JobTerminal(const std::vector<std::string>& command) : JobTerminal(command, Options{}) {}
  JobTerminal(const std::vector<std::string>& command, const Options& options);

  /// Kills a job that still runs.
  ~JobTerminal();

  JobTerminal(const JobTerminal&) = delete;
  JobTerminal& operator=(const JobTerminal&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }

  /// Types `keys`, a few.
  void type(std::string_view keys);

  /// Reads until the output holds `text`, and drops all up to its end.
  bool waitForOutput(std::string_view text, std::chrono::milliseconds limit = timeout);

  /// The next change of the job as waitpid(2) tells it: stopped, continued, ended.
  /// Takes what the job writes meanwhile. Nothing when the time is over.
  std::optional<int> nextStatus(std::chrono::milliseconds limit = timeout);

  void signal(int number);

  /// Gives the job the foreground, and continues it.
  void continueInForeground();

  /// Takes the foreground from the job.
  void sendToBackground();

  /// Closes the terminal, as a lost connection does.
  void hangUp();

  /// The terminal's mode as it is now.
  [[nodiscard]] termios mode() const;
  void setMode(const termios& mode);

  /// Output that no `waitForOutput` has dropped.
  [[nodiscard]] const std::string& output() const { return output_; }

 private:
  using Clock = std::chrono::steady_clock;

  void open();
  void start(const std::vector<std::string>& command, const Options& options);
  bool pump(Clock::time_point deadline);
  void takeOutput();
  void askKeeper(int request);

  int master_ = -1;
  int slave_ = -1;
  std::string device_;
  int changes_ = -1;
  pid_t keeper_ = -1;
  pid_t pid_ = -1;
  bool ended_ = false;
  std::string output_;
};

/// Whether two modes are alike in every flag and character.
bool sameMode(const termios& one, const termios& other);

}  // namespace test_support
