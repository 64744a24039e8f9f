#pragma once

#include <string>
#include <string_view>

namespace treectl {

/// A file that has no name until it is complete: whatever ends the program before, nothing is left
/// of it.
class UnnamedFile {
 public:
  /// For a file that is to take the place of `path`, which is a regular file or none.
  explicit UnnamedFile(const std::string& path);
  ~UnnamedFile();
  UnnamedFile(const UnnamedFile&) = delete;
  UnnamedFile& operator=(const UnnamedFile&) = delete;

  /// Whether it could be made: not on each file system, and not where something else than a regular
  /// file would be replaced.
  [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }

  /// Appends to it. After the first error it takes nothing more.
  void write(std::string_view bytes);
  /// Removes what was written.
  void clear();
  /// Lets it take the place of `path`. 0, or the number of the first error; then `path` is as it
  /// was.
  [[nodiscard]] int commit();

  [[nodiscard]] int error() const { return error_; }

 private:
  std::string target_;
  int descriptor_ = -1;
  unsigned mode_ = 0;
  int error_ = 0;
};

/// Writes a file in one step: to a temporary file beside it, which then takes its place, so that
/// there is the old file or the whole new one. What is no regular file, such as a device or a pipe,
/// is written itself. "-" is standard output. 0, or the number of the error.
[[nodiscard]] int replaceFile(const std::string& path, const std::string& text);

}  // namespace treectl
