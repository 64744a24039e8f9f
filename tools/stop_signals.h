#pragma once

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
};

}  // namespace treectl
