#pragma once

#include <string>
#include <string_view>

namespace test_support {

/// A new directory for the files of one test; the destructor removes it with its
/// files.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }

  /// The path of the file `name` in the directory.
  [[nodiscard]] std::string file(const std::string& name) const { return path_ + '/' + name; }

  /// Writes the file `name` and returns its path.
  [[nodiscard]] std::string write(const std::string& name, std::string_view bytes) const;

  /// The content of the file `name`; fails the test if it cannot be read.
  [[nodiscard]] std::string read(const std::string& name) const;

 private:
  std::string path_;
};

/// A temporary file with the given text, removed by the destructor.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& text) { write(text); }

  /// Replaces the text.
  void write(const std::string& text) { path_ = directory_.write("file", text); }
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  ScratchDirectory directory_;
  std::string path_;
};

}  // namespace test_support
