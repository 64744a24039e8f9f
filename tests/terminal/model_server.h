#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/commands/scratch_directory.h"
#include "tests/support/process.h"

namespace terminal_test {

/// A `modelsrvd` of the build, under a name short enough for a prompt, until the
/// end of its scope.
class ModelServer {
 public:
  /// Serves the tree described by `tree`. Waits until the server can be connected
  /// to; `std::runtime_error` where it cannot.
  explicit ModelServer(const std::string& tree = drive);

  /// Serves what the switches `arguments` say.
  explicit ModelServer(const std::vector<std::string>& arguments);

  [[nodiscard]] const std::string& name() const { return name_; }

  void hang();
  void resume();

  /// /drive with a part of each kind, and /empty, a node without children.
  static const std::string drive;

 private:
  void start(const std::vector<std::string>& arguments);

  std::string name_;
  treescope::test::ScratchDirectory files_;
  std::unique_ptr<test_support::Process> process_;
};

}  // namespace terminal_test
