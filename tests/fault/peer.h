#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/process.h"

/// The peer program as a test sees it, and what the system tells of a process.
namespace fault {

class Peer {
 public:
  Peer();
  /// Has it come to its end by itself where it has not, which a sanitizer's
  /// complaint would show in.
  ~Peer();
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  /// Sends one command line; its answer is to be taken with `answer`.
  void send(const std::string& command);
  std::string answer();
  std::string ask(const std::string& command);

  /// Takes lines up to the answer of a "run"; the answer is the last one.
  std::vector<std::string> run(const std::string& command);

  /// Stops it (SIGSTOP) and returns when it stands still.
  void suspend();
  void resume();
  /// Kills it (SIGKILL) and returns when it has gone.
  void kill();
  /// Has it come to its end and returns when it has gone.
  void quit();

  [[nodiscard]] pid_t pid() const { return process_.pid(); }

 private:
  test_support::Process process_;
  bool hasEnded_ = false;
};

/// Waits until `holds`, for what gives no event to wait for: the state of another
/// process. False when it has not come in time.
bool eventually(const std::function<bool()>& holds);

/// How many descriptors process `pid` has open.
std::size_t descriptorCount(pid_t pid);

/// The paths of the private pipes that `pid` has open and that still have their
/// names, each once.
std::vector<std::string> namedPrivatePipes(pid_t pid);

/// How many private pipes, with a name or without, `pid` has open.
std::size_t privatePipeCount(pid_t pid);

/// How much memory `pid` has in use, in KiB.
std::size_t residentKiB(pid_t pid);

/// The lines of the states of the threads of `pid` that tell of a SIGPIPE which is
/// pending, ignored, caught or blocked; none where all is as it was started.
std::string sigpipeTraces(pid_t pid);

/// Whether memory that was freed is given out again soon: not so where a
/// sanitizer holds it back.
bool memoryIsReused();

/// Whether a sanitizer wants descriptors of its own: the check of virtual calls
/// makes a pipe to probe memory, and takes its refusal for a bad object.
bool sanitizerNeedsDescriptors();

}  // namespace fault
