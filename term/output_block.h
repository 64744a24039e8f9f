#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace treescope {

/// Lines on their way to standard output, which gets many kilobytes of them at a
/// time: a call for each of very many lines costs more than making them.
///
/// One thread's, for the length of one listing. What is handed over at once are
/// whole lines in one call of the standard library, so that no line is divided by
/// another thread's. What the system refuses is lost silently.
class OutputBlock {
 public:
  OutputBlock() = default;
  /// Hands over the complete lines that are left.
  ~OutputBlock() {
    text_.resize(complete_);
    flush();
  }
  OutputBlock(const OutputBlock&) = delete;
  OutputBlock& operator=(const OutputBlock&) = delete;

  /// What has not been handed over; the next line is appended to it.
  [[nodiscard]] std::string& text() { return text_; }

  /// A line is complete: hands everything over where it is much.
  void endLine() {
    complete_ = text_.size();
    if (text_.size() >= size) {
      flush();
    }
  }

  /// Hands everything over.
  void flush() {
    std::fwrite(text_.data(), 1, text_.size(), stdout);
    text_.clear();
    complete_ = 0;
  }

 private:
  static constexpr std::size_t size = std::size_t{32} * 1024;

  std::string text_;
  std::size_t complete_ = 0;  ///< where in `text_` the last complete line ends
};

}  // namespace treescope
