#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/commands/scratch_directory.h"
#include "tests/support/process.h"

namespace terminal_test {

/// Runs the built `modelsrvd` while it exists, with a name that is short enough for a
/// prompt.
class ModelServer {
 public:
  /// Serves the tree that `tree` describes. Waits until clients can connect; throws
  /// std::runtime_error if the server does not start.
  explicit ModelServer(const std::string& tree = drive);

  /// Starts the server with the command line options `arguments`.
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
