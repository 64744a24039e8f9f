#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "servers/error.h"
#include "servers/files.h"

namespace modelsrvd {

/// Reads a file line by line, so that it is never in memory as a whole.
class RecordingFile {
 public:
  /// The size limit of a line.
  static constexpr std::size_t maxLineBytes = std::size_t{256} * 1024 * 1024;

  explicit RecordingFile(const std::string& path);

  /// The next line without its line feed, valid until the next call. Nothing at the end and after
  /// an error. What follows the last line feed is no line: the recording was interrupted there.
  [[nodiscard]] std::optional<std::string_view> next();

  /// The number of the last line, from 1.
  [[nodiscard]] std::uint64_t line() const { return line_; }

  /// Lets the second line be next again.
  void rewind();

  /// Why the file could not be opened or read. Begins with the path.
  [[nodiscard]] const std::optional<Error>& error() const {
    return error_ ? error_ : file_.error();
  }

 private:
  std::string path_;
  FileReader file_;
  std::string_view piece_;  ///< what is left of the last piece
  std::string begun_;       ///< a line that began in an earlier piece
  std::uint64_t line_ = 0;
  std::uint64_t secondLine_ = 0;  ///< where it begins
  std::optional<Error> error_;
};

}  // namespace modelsrvd
