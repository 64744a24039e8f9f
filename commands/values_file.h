#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace treescope {

/// A file of saved values that is being written, from its beginning.
///
/// Opened, written and closed by the thread that runs the command. What is written
/// is collected and handed to the system by many kilobytes at a time. Where the
/// system takes no more (the disk is full, a pipe's reader has gone) the rest is
/// dropped; nobody is told, and no signal reaches the program. Programs that the
/// shell starts meanwhile do not inherit the file.
class ValuesFile {
 public:
  /// Creates or empties the file `fileName` (zero-terminated, not null; open(2)).
  /// Never waits for a reader of a named pipe: one that has none cannot be opened.
  explicit ValuesFile(const char* fileName);

  /// Writes what is left and closes.
  ~ValuesFile();

  ValuesFile(const ValuesFile&) = delete;
  ValuesFile& operator=(const ValuesFile&) = delete;

  /// Whether the file could be opened; if not, nothing below may be called.
  [[nodiscard]] bool opened() const { return stream_ != nullptr; }

  void write(const std::string& text);

 private:
  struct Close {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
  };

  void flush();

  std::unique_ptr<std::FILE, Close> stream_;
  std::string pending_;
  bool failed_ = false;
};

}  // namespace treescope
