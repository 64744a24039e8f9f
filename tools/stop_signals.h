#pragma once

#include <poll.h>

#include <cstddef>

#include "tools/status.h"

namespace treectl {

/// Notes SIGINT and SIGTERM instead of ending the program, for the lifetime of the object, so that
/// a command can say how far it came. At most one object at a time. A signal that is ignored from
/// the start stays ignored.
class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// The last signal; 0 if there was none.
  [[nodiscard]] static int received();

  /// As poll(2), which a signal ends: also one that comes just before it waits.
  static int waitFor(pollfd* descriptors, std::size_t count, int milliseconds);
};

/// The exit status after that signal.
[[nodiscard]] Status statusOfSignal(int signal);

}  // namespace treectl
