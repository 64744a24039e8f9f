#pragma once

#include <string>

namespace treescope::test {

/// A directory of its own for the files of one test, removed with what is in it.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }

  /// The path of the file `name` in it.
  [[nodiscard]] std::string file(const std::string& name) const { return path_ + '/' + name; }

  /// Fills the file `name`; gives its path.
  [[nodiscard]] std::string write(const std::string& name, const std::string& bytes) const;

  /// What the file `name` holds; fails the test where it cannot be read.
  [[nodiscard]] std::string read(const std::string& name) const;

 private:
  std::string path_;
};

}  // namespace treescope::test
