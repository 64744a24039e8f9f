#pragma once

#include <string>

namespace treescope::test {

/// A directory for the files of one test. The destructor removes it with its content.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }

  /// The path of the file `name` in it.
  [[nodiscard]] std::string file(const std::string& name) const { return path_ + '/' + name; }

  /// Writes the file `name` and returns its path.
  [[nodiscard]] std::string write(const std::string& name, const std::string& bytes) const;

  /// The content of the file `name`; fails the test if it cannot be read.
  [[nodiscard]] std::string read(const std::string& name) const;

 private:
  std::string path_;
};

}  // namespace treescope::test
