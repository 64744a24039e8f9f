#pragma once

#include <string>

namespace treescope {

/// Reads a file of command lines from its beginning.
///
/// Used by one thread, the one that runs the commands. Programs that the shell
/// starts do not inherit the descriptor. A read error counts as the end of the
/// file.
class CommandFile {
 public:
  /// A longer line is cut to this number of bytes.
  static constexpr std::size_t maxLineLength = 999;

  /// Opens `fileName` (zero-terminated, not null). If the file is a named pipe that no
  /// process has open for writing, waits until one opens it.
  explicit CommandFile(const char* fileName);
  ~CommandFile();
  CommandFile(const CommandFile&) = delete;
  CommandFile& operator=(const CommandFile&) = delete;

  /// Whether the file can be read; a directory cannot. The functions below require
  /// it.
  [[nodiscard]] bool opened() const { return descriptor_ != -1; }

  /// Whether there is no further line. The end is noticed only after a line that no
  /// line feed ends, which includes the empty line after the last line feed.
  [[nodiscard]] bool ended() const { return ended_; }

  /// The next line without its line feed. Of a line longer than `maxLineLength`,
  /// the beginning; the line after it is then empty and the last one. Waits for the
  /// line as long as a pipe's writer takes.
  [[nodiscard]] std::string nextLine();

  /// Releases the memory for what has been read, until the next line is wanted.
  void releaseBuffer();

 private:
  int nextByte();
  bool fillBuffer();

  int descriptor_ = -1;
  std::string buffer_;
  /// The position of the next byte in `buffer_`.
  std::size_t position_ = 0;
  bool ended_ = false;
  bool cut_ = false;
};

}  // namespace treescope
