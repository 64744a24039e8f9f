#pragma once

#include <sys/types.h>

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/descriptor.h"

namespace test_support {

/// A program as a job on a terminal, as a login shell starts one: it has its own
/// process group, which can be stopped, continued and moved to the foreground.
///
/// The job's parent is a keeper process, which is forked from the test. The keeper
/// leads the terminal's session, reports the job's wait statuses through a pipe and
/// moves the foreground on request. For one thread.
class TerminalJob {
 public:
  struct Options {
    /// Where the program starts; empty: where the test runs.
    std::string directory = {};
    /// Whether the job has the terminal's foreground from the start.
    bool foreground = true;
    /// A signal that the job ignores from the start; 0: none.
    int ignoredSignal = 0;
    /// Whether another program has left the terminal non-blocking.
    bool nonBlocking = false;
  };

  /// Starts `command`, found by PATH, on the terminal `device`. A program that cannot
  /// be executed ends with status 127. `std::system_error` if there is no keeper.
  TerminalJob(const std::string& device, const std::vector<std::string>& command,
              const Options& options);

  /// Kills a job that still runs.
  ~TerminalJob();

  TerminalJob(const TerminalJob&) = delete;
  TerminalJob& operator=(const TerminalJob&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }

  /// Becomes readable when the job has stopped, continued or ended.
  [[nodiscard]] int statusDescriptor() const { return changes_.get(); }

  /// The next change of the job as waitpid(2) reports it. Does not wait; nothing if
  /// there is none yet.
  std::optional<int> nextStatus();

  /// How the job ended, as far as `nextStatus` has returned it.
  [[nodiscard]] std::optional<int> endStatus() const { return endStatus_; }

  /// Sends a signal to the job, unless it has ended.
  void signal(int number);

  /// Gives the job the foreground, and continues it.
  void continueInForeground();

  /// Takes the foreground from the job.
  void moveToBackground();

 private:
  void request(int number);
  bool receive();

  Descriptor changes_;
  std::deque<int> statuses_;
  std::optional<int> endStatus_;
  bool acknowledged_ = false;
  pid_t keeper_ = -1;
  pid_t pid_ = -1;
};

}  // namespace test_support
