#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "servers/error.h"

namespace modelsrvd {

/// The file in which the server keeps what clients have stored. It is replaced as a whole, so that
/// after a crash or a power cut it is the old one or the new one. For one thread; the calls wait
/// for the disk.
class StateFile {
 public:
  explicit StateFile(std::string path) : path_(std::move(path)) {}

  [[nodiscard]] const std::string& path() const { return path_; }

  /// The text of the file; nothing if there is none. An error if it cannot be read, if its name is
  /// that of something else, such as a directory or a symbolic link, or if it belongs to another
  /// user than that of the process.
  [[nodiscard]] Result<std::optional<std::string>> read() const;

  /// Renames the file, which is damaged, to `damagedPath`, now or before the next write: what it
  /// has is not lost.
  [[nodiscard]] std::optional<Error> setAside();
  [[nodiscard]] std::string damagedPath() const { return path_ + ".damaged"; }

  /// Replaces the file by one of mode 0600 with `text`, which is then on the disk. After an error
  /// the file is the one before or the new one.
  [[nodiscard]] std::optional<Error> write(std::string_view text);

 private:
  [[nodiscard]] std::string newPath() const { return path_ + ".new"; }
  [[nodiscard]] std::optional<Error> writeNew(std::string_view text) const;
  [[nodiscard]] std::optional<Error> syncDirectory() const;

  std::string path_;
  bool isDamaged_ = false;
};

}  // namespace modelsrvd
