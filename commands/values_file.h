#pragma once

#include <string>

namespace treescope {

/// The file of saved values that `to` writes.
///
/// Opened, written and closed by the thread that runs the command. Text is collected
/// and written in blocks of many kilobytes. If a write fails (the disk is full, the
/// reader of a pipe has gone), the rest is dropped without an error and without a
/// SIGPIPE. Programs that the shell starts do not inherit the file.
class ValuesFile {
 public:
  /// Creates or empties the file `fileName` (zero-terminated, not null). Never
  /// waits for the reader of a named pipe: without a reader it cannot be opened.
  explicit ValuesFile(const char* fileName);

  /// Writes the collected text and closes the file.
  ~ValuesFile();

  ValuesFile(const ValuesFile&) = delete;
  ValuesFile& operator=(const ValuesFile&) = delete;

  /// Whether the file could be opened. If not, `write` must not be called.
  [[nodiscard]] bool opened() const { return descriptor_ != -1; }

  void write(const std::string& text);

 private:
  void flush();

  int descriptor_ = -1;
  std::string pending_;
  bool failed_ = false;
};

}  // namespace treescope
