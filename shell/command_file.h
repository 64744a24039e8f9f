#pragma once

#include <cstdio>
#include <memory>
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

  /// Opens `fileName` (zero-terminated, not null). Does not wait for a writer when
  /// the file is a named pipe.
  explicit CommandFile(const char* fileName);

  /// Whether the file can be read; a directory cannot. The functions below require
  /// it.
  [[nodiscard]] bool opened() const { return stream_ != nullptr; }

  /// Whether there is no further line. The end is noticed only after a line that no
  /// line feed ends, which includes the empty line after the last line feed.
  [[nodiscard]] bool ended() const { return ended_; }

  /// The next line without its line feed. Of a line longer than `maxLineLength`,
  /// the beginning; the line after it is then empty and the last one.
  [[nodiscard]] std::string nextLine();

 private:
  struct Close {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
  };

  std::unique_ptr<std::FILE, Close> stream_;
  bool ended_ = false;
  bool cut_ = false;
};

}  // namespace treescope
