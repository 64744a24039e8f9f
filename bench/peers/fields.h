#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace bench::peers {

/// The fields of one line of the input, separated by tabs and read from left to right. A field
/// that is missing or malformed is reported as a `std::runtime_error`.
class Fields {
 public:
  explicit Fields(const std::string& line);

  [[nodiscard]] std::string text();
  [[nodiscard]] unsigned long number();
  /// Bytes that are written as pairs of hexadecimal digits.
  [[nodiscard]] std::string bytes();
  /// All remaining fields.
  [[nodiscard]] std::vector<std::string> rest();

 private:
  std::vector<std::string> fields_;
  std::size_t next_ = 0;
};

/// A text or message with at most one "{value}", which stands for a number.
class Template {
 public:
  explicit Template(std::string text);

  /// The text with `value`; valid until the next call.
  [[nodiscard]] const std::string& with(unsigned long value);

 private:
  std::string text_;
  std::size_t offset_;  ///< of the number in the text; npos if there is none
  std::size_t length_;  ///< of the number in the text
};

}  // namespace bench::peers
