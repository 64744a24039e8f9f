#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/scratch_directory.h"

namespace test_support {

/// A running `modelsrvd` with a unique port name, short enough for a prompt. The
/// constructor waits until the server can be connected to, and throws
/// `std::runtime_error` if it cannot; the destructor terminates the server.
class ModelServer {
 public:
  /// Serves `sampleTree`.
  ModelServer();

  /// Serves the tree with this description.
  static ModelServer ofTree(std::string_view description);

  /// Starts `modelsrvd` with `options`. With `mergeErrors`, its standard error is part
  /// of its output.
  explicit ModelServer(std::vector<std::string> options, bool mergeErrors = false);

  ~ModelServer();
  ModelServer(const ModelServer&) = delete;
  ModelServer& operator=(const ModelServer&) = delete;

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] Process& process() { return *process_; }

  /// Stops the process without ending it, and continues it.
  void hang();
  void resume();

  /// Kills the server, which leaves its mailbox.
  void kill();

  /// Starts a killed server again, under the same name.
  void restart();

  /// Sends `signal`, waits for the end and returns whether the status was 0 and
  /// nothing was written to standard error.
  [[nodiscard]] bool stops(int signal);

  /// /drive with a part of each kind, and /empty, a node without children:
  ///
  ///     /drive/speed      1.1   int32 42
  ///     /drive/label      1.2   text "two words"
  ///     /drive/gains      1.3   double array p 1.5, i 0.25
  ///     /drive/serial     1.5   text "A-17", read-only
  ///     /drive/offset     1.6   float 0, protected
  ///     /drive/<unnamed>  1.12  uint16 7
  ///     /empty            2     a node without children
  static const std::string_view sampleTree;

 private:
  struct OfTree {};
  ModelServer(OfTree, std::string_view description);

  std::string name_;
  ScratchDirectory files_;
  std::vector<std::string> options_;
  bool mergeErrors_ = false;
  std::unique_ptr<Process> process_;
};

/// Runs `modelsrvd` with these arguments to its end.
Finished runModelsrvd(const std::vector<std::string>& arguments);

}  // namespace test_support
