#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <map>
#include <string>

#include "tests/support/descriptor.h"

/// Makes one system call of a program fail.
///
/// The kernel stops the program at the call (seccomp_unotify(2)) and lets a test decide what
/// becomes of it. So every way into the kernel is covered, those inside the C library and raw ones
/// too, and the program needs no change. Calls of the dynamic linker and of programs that
/// the program executes are not counted.
namespace fault_matrix {

/// The error that the `occurrence`th call of `call` (from 1) returns; all threads count.
struct Fault {
  int call = -1;  ///< the number of the system call; -1: record all calls, and none fails
  int error = 0;
  int occurrence = 0;
};

class Injection {
 public:
  /// `program` is the path of the executable file whose calls count.
  Injection(const Fault& fault, std::string program);

  /// In the new process, just before it executes the program: installs the filter, and
  /// sends its descriptor over the socket `channel`. False if the kernel refuses.
  [[nodiscard]] bool install(int channel) const;

  /// In this process: receives the descriptor that `install` has sent. `process` is the
  /// new process.
  [[nodiscard]] bool attach(int channel, pid_t process);

  /// Readable when a call waits for `serve`; -1 before `attach` and after `detach`.
  [[nodiscard]] int descriptor() const { return listener_.get(); }

  /// Decides the call that waits. False if the program has ended.
  bool serve();
  void detach() { listener_.close(); }

  /// Whether the call has been made to fail.
  [[nodiscard]] bool injected() const { return injected_; }

  /// How often each call was made, by number; with the fault -1 alone.
  [[nodiscard]] const std::map<int, int>& counts() const { return counts_; }

 private:
  bool isOurs(pid_t thread);
  bool isLinker(std::uint64_t address);
  int errorFor(int call, pid_t thread, std::uint64_t address);
  void closeInProgram(std::uint64_t request, std::uint64_t descriptor) const;

  Fault fault_;
  std::string program_;
  pid_t process_ = -1;
  test_support::Descriptor listener_;
  bool executed_ = false;
  bool linkerKnown_ = false;
  std::uint64_t linkerBegin_ = 0;
  std::uint64_t linkerEnd_ = 0;
  std::map<pid_t, bool> ours_;
  std::map<int, int> counts_;
  bool injected_ = false;
};

}  // namespace fault_matrix
