#pragma once

#include <poll.h>

#include <cstddef>

#include "tools/status.h"

namespace treectl {

/// Notes signals instead of ending the program, for the lifetime of the object, so that a command
/// can say how far it came. At most one object at a time. A signal that is ignored from the start
/// stays ignored.
class StopSignals {
 public:
  enum class Kind {
    plain,     ///< SIGINT and SIGTERM
    terminal,  ///< also SIGHUP and SIGQUIT; and those of a terminal, which end nothing
  };

  explicit StopSignals(Kind kind = Kind::plain);
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// The last signal that ends the program; 0 if there was none. A system call that still waits a
  /// second after it is interrupted, and again each second.
  [[nodiscard]] static int received();

  /// Whether the terminal has changed its size (SIGWINCH), or is to be left (SIGTSTP), or the
  /// program was continued (SIGCONT), since the last call.
  [[nodiscard]] static bool takeResize();
  [[nodiscard]] static bool takeSuspension();
  [[nodiscard]] static bool takeContinuation();

  /// As poll(2), which a signal ends: also one that comes just before it waits.
  static int waitFor(pollfd* descriptors, std::size_t count, int milliseconds);

 private:
  Kind kind_;
};

/// Stops the program as SIGTSTP does without a handler, until it is continued.
void suspendProgram();

/// Ends the program by a signal that has no exit status of its own, as it would without a handler.
void endBySignal(int signal);

/// The exit status after that signal.
[[nodiscard]] Status statusOfSignal(int signal);

}  // namespace treectl
