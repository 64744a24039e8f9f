#pragma once

#include <string>
#include <vector>

#include "tests/support/process.h"

namespace modelsrvd {

/// A running `modelsrvd` with a unique port name. The constructor waits until it is
/// ready, the destructor terminates it.
class ServerProcess {
 public:
  /// With `mergeErrors`, standard error is merged into the output.
  explicit ServerProcess(const std::vector<std::string>& options, bool mergeErrors = false);

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] test_support::Process& process() { return process_; }

  /// Sends `signal`, waits for the exit and returns whether the status was 0 and
  /// nothing was written to standard error.
  [[nodiscard]] bool stops(int signal);

 private:
  std::string name_;
  test_support::Process process_;
};

/// A temporary file with the given text, removed by the destructor.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& text);
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  void write(const std::string& text) const;
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

/// Runs `modelsrvd` with these arguments to its exit.
test_support::Finished runServer(const std::vector<std::string>& args);

}  // namespace modelsrvd
