#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace treescope {

/// A file of command lines that is being read, from its beginning.
///
/// Opened by whoever runs it and read on the same thread. Programs that the shell
/// starts meanwhile do not inherit it. A read that the system refuses ends the
/// file.
class CommandFile {
 public:
  /// The most bytes of a line that are delivered.
  static constexpr std::size_t longestLine = 999;

  /// Opens `fileName` (zero-terminated, not null). Never waits for a writer of a
  /// named pipe.
  explicit CommandFile(const char* fileName);

  /// Whether the file can be read; a directory cannot. If not, nothing below may
  /// be called.
  [[nodiscard]] bool opened() const { return stream_ != nullptr; }

  /// Whether nothing more is delivered: the end was met, which is noticed only
  /// when a line without a line feed has been read, the empty one behind the last
  /// line feed too.
  [[nodiscard]] bool ended() const { return ended_; }

  /// The next line without its line feed. Where it is longer than `longestLine`,
  /// its beginning; what follows it then is an empty line that ends the file.
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
