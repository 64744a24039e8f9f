#pragma once

#include <string>
#include <vector>

#include "tests/support/process.h"

namespace modelsrvd {

/// `modelsrvd` under a name of its own, started and ready. What a test checks
/// further it does on `process`.
class ServerProcess {
 public:
  /// With `mergeErrors` what it complains of comes as lines of its output.
  explicit ServerProcess(const std::vector<std::string>& switches, bool mergeErrors = false);

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] test_support::Process& process() { return process_; }

  /// Asks for the end with `signal`; true where the server ended with status 0
  /// and wrote nothing on standard error.
  [[nodiscard]] bool ends(int signal);

 private:
  std::string name_;
  test_support::Process process_;
};

/// A file with a text of its own, removed at the end.
class ScratchFile {
 public:
  explicit ScratchFile(const std::string& text);
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  void write(const std::string& text) const;
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

/// The whole of `run`ning modelsrvd with these words.
test_support::Finished runServer(const std::vector<std::string>& words);

}  // namespace modelsrvd
