#pragma once

#include <cstddef>
#include <string>

namespace test_support {

/// The bytes that a line editor prints under one prompt.
class EditorEcho {
 public:
  /// `name` is the text between the prompt's brackets.
  explicit EditorEcho(std::string name)
      : name_(std::move(name)), column_(name_.size() + sizeof "[]$ ") {}

  /// The prompt and `line`, with the cursor at its end.
  [[nodiscard]] std::string prompt(const std::string& line = "") const {
    return "\033[0G[" + name_ + "]$ " + redrawn(line, line.size());
  }

  /// `line` alone, with the cursor at `cursor`.
  [[nodiscard]] std::string redrawn(const std::string& line, std::size_t cursor) const {
    return "\033[" + std::to_string(column_) + "G" + line + "\033[0K" + cursorAt(cursor);
  }

  [[nodiscard]] std::string cursorAt(std::size_t cursor) const {
    return "\033[" + std::to_string(column_ + cursor) + "G";
  }

  /// What is printed for each key of `text` on an empty line.
  [[nodiscard]] std::string typed(const std::string& text) const {
    std::string bytes;
    for (std::size_t length = 1; length <= text.size(); ++length) {
      bytes += redrawn(text.substr(0, length), length);
    }
    return bytes;
  }

  /// What is printed after a line was run.
  [[nodiscard]] std::string nextPrompt() const { return redrawn("", 0) + prompt(); }

 private:
  const std::string name_;
  const std::size_t column_;
};

}  // namespace test_support
