#pragma once

#include <cstddef>
#include <string>

#include "term/standard_output.h"

namespace treescope {

/// Collects the lines of a listing and writes many kilobytes of them at a time: a call
/// per line would cost more than making the line.
///
/// For one thread and one listing. Each write is one call of `printText` with whole lines
/// only, so other threads' output does not divide a line. Write errors are
/// ignored.
class OutputBlock {
 public:
  OutputBlock() = default;
  /// Writes the complete lines that are left.
  ~OutputBlock() {
    text_.resize(complete_);
    flush();
  }
  OutputBlock(const OutputBlock&) = delete;
  OutputBlock& operator=(const OutputBlock&) = delete;

  /// The text that has not been written yet; the next line is appended to it.
  [[nodiscard]] std::string& text() { return text_; }

  /// Ends a line, and writes the text if there is enough of it.
  void endLine() {
    complete_ = text_.size();
    if (text_.size() >= size) {
      flush();
    }
  }

  /// Writes the text.
  void flush() {
    printText(text_);
    text_.clear();
    complete_ = 0;
  }

 private:
  static constexpr std::size_t size = std::size_t{32} * 1024;

  std::string text_;
  std::size_t complete_ = 0;  ///< offset in `text_` at which the last complete line ends
};

}  // namespace treescope
