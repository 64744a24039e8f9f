#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/support/process.h"

/// The peer program (fault_peer.cpp), and what the system reports about a process.
namespace fault {

using test_support::eventually;

class Peer {
 public:
  Peer();
  /// Lets the program exit by itself if it is still running, and checks its exit status,
  /// which would show the report of a sanitizer.
  ~Peer();
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  /// Sends one command line. `result` then returns its result line.
  void send(const std::string& command);
  std::string result();
  /// Sends one command line and returns its result line.
  std::string execute(const std::string& command);

  /// Lets the peer run a shell command. Returns the lines that the command prints, and the
  /// result line last.
  std::vector<std::string> run(const std::string& command);

  /// Stops it (SIGSTOP) and returns when it has stopped.
  void suspend();
  void resume();
  /// Kills it (SIGKILL) and returns when it has ended.
  void kill();
  /// Lets it exit and returns when it has ended.
  void quit();

  [[nodiscard]] pid_t pid() const { return process_.pid(); }

 private:
  test_support::Process process_;
  bool hasEnded_ = false;
};

/// The number of open descriptors of process `pid`.
std::size_t descriptorCount(pid_t pid);

/// The paths of the private pipes that `pid` has open and that still have their names;
/// each path once.
std::vector<std::string> namedPrivatePipes(pid_t pid);

/// The same of a client whose server is stopped, when it has made and locked them all: before that,
/// a sweep of any process may remove them, and it makes others.
std::vector<std::string> awaitPrivatePipes(pid_t pid);

/// The number of private pipes, with or without a name, that `pid` has open.
std::size_t privatePipeCount(pid_t pid);

/// The resident memory of `pid` in KiB.
std::size_t residentKiB(pid_t pid);

/// The status lines of the threads of `pid` that show SIGPIPE as pending, ignored, caught
/// or blocked; empty if its state is the initial one.
std::string sigpipeState(pid_t pid);

}  // namespace fault
