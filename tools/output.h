#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace treectl {

/// Opens /dev/null for each standard stream that is closed, so that no pipe of the library becomes
/// one; output to a closed standard output still fails. Lets SIGPIPE end the program, and a limit
/// on the size of files be an error.
void prepareStandardStreams();

/// Text on its way to standard output, collected and written in large pieces. For one thread.
///
/// After the first error the rest is dropped; the program then ends with `Status::ioError`.
class Output {
 public:
  Output() = default;
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  /// What the caller appends to; it calls `writeIfLarge` now and then, and `flush` at the end.
  [[nodiscard]] std::string& text() { return text_; }

  void writeIfLarge() {
    if (text_.size() >= flushSize) {
      flush();
    }
  }

  /// Waits until all text is written; false if it cannot be.
  bool flush();

  /// The number of the first error (errno(3)); 0 if there was none.
  [[nodiscard]] int error() const { return error_; }

 private:
  static constexpr std::size_t flushSize = std::size_t{64} * 1024;

  std::string text_;
  int error_ = 0;
};

/// Writes all of `bytes`, also to a pipe that another program has made non-blocking. 0, or the
/// number of the error: EINTR if it waited and `StopSignals` has received one.
[[nodiscard]] int writeAll(int descriptor, std::string_view bytes);

/// Prints messages to standard error: "treectl: SUBJECT: reason", a line each. For one thread.
class Messages {
 public:
  /// Without messages the status is all that a script gets.
  void setQuiet(bool quiet) { quiet_ = quiet; }

  void print(std::string_view text) const;
  void print(std::string_view subject, std::string_view reason) const;
  /// Without the name of the program.
  void printLine(std::string_view text) const;

 private:
  bool quiet_ = false;
};

/// The text of an error number.
[[nodiscard]] std::string errorText(int number);

}  // namespace treectl
