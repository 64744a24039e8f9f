#pragma once

#include <gmock/gmock.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/model_server.h"
#include "tests/support/process.h"
#include "tests/support/scratch_directory.h"

namespace treectl {

/// `treectl` of the build, or that of another build which TREESCOPE_TEST_TREECTL names
/// (script/compat).
std::string treectlProgram();

/// Runs `treectl` to its end.
test_support::Finished runTreectl(const std::vector<std::string>& arguments,
                                  std::string_view input = {});

/// A run of the program and all that it must do. "{S}" stands for the server's name, "{D}" for the
/// test's directory.
struct Expected {
  std::vector<std::string> arguments;
  int status = 0;
  std::string output = {};
  std::string errors = {};
  std::string input = {};
};

/// `modelsrvd` with a tree that has a part of every kind, and a directory for files.
class TreectlTest : public testing::Test {
 protected:
  /// Runs the program and compares every byte.
  void expect(const Expected& run);

  /// The arguments and texts with the names that they stand for.
  [[nodiscard]] std::string filled(std::string text) const;

  /// The output of a run that succeeds.
  std::string output(const std::vector<std::string>& arguments);

  test_support::ModelServer& server() { return server_; }
  test_support::ScratchDirectory& files() { return files_; }

  /// The size of a file in the directory; 0 if there is none.
  [[nodiscard]] std::size_t fileSize(const std::string& name) const;

  /// The description of the tree.
  static const std::string_view tree;

 private:
  test_support::ModelServer server_{test_support::ModelServer::ofTree(tree)};
  test_support::ScratchDirectory files_;
};

}  // namespace treectl
