#pragma once

#include <memory>
#include <string>

#include "tests/support/process.h"

/// A `modelsrvd` of the build that serves a tree with a part of each kind, under
/// a name of the test's own, until the end of its scope.
class ServedSample {
 public:
  ServedSample();

  /// Serves the description `tree` instead. Waits until the server can be
  /// connected to; `std::runtime_error` where it cannot.
  explicit ServedSample(const std::string& tree);
  ~ServedSample();
  ServedSample(const ServedSample&) = delete;
  ServedSample& operator=(const ServedSample&) = delete;

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] test_support::Process& process() { return *process_; }

  /// Kills the server; what it served is gone.
  void kill();
  /// Serves the tree anew once the server has gone, as the constructor does.
  void serve();

 private:
  std::string name_;
  std::string file_;
  std::unique_ptr<test_support::Process> process_;
};
