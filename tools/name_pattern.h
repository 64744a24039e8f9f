#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace treectl {

/// One name of an address, as it was typed: bytes and wildcards. `*` stands for any bytes, `?` for
/// one byte. No system calls; any thread.
class NamePattern {
 public:
  /// Parses `text`, which has no separators. `\xHH` is that byte; before any other byte a backslash
  /// takes its meaning away. A backslash at the end stands for itself.
  explicit NamePattern(std::string_view text = {});

  [[nodiscard]] bool hasWildcards() const { return hasWildcards_; }

  /// Whether the text was `**`: any number of levels.
  [[nodiscard]] bool isAnyDepth() const { return isAnyDepth_; }

  /// The number after a leading `#` that was not escaped.
  [[nodiscard]] std::optional<unsigned> childId() const { return childId_; }

  /// The number that the whole text is, if it is decimal digits without an escape.
  [[nodiscard]] std::optional<unsigned> number() const { return number_; }

  /// Whether `name` is what the pattern stands for.
  [[nodiscard]] bool matches(std::string_view name) const;

  /// The bytes; with wildcards as they were typed, without backslashes.
  [[nodiscard]] const std::string& bytes() const { return bytes_; }

 private:
  enum class Kind : char { byte, one, any };

  void add(char byte, Kind kind);
  void findNumbers(std::string_view text);
  [[nodiscard]] bool matchesAt(std::size_t at, char byte) const;

  std::string bytes_;
  std::vector<Kind> kinds_;  ///< one for each of `bytes_`
  std::optional<unsigned> childId_;
  std::optional<unsigned> number_;
  bool hasWildcards_ = false;
  bool isAnyDepth_ = false;
};

/// Appends `name` so that it can be typed in an address: a backslash before each byte that has a
/// meaning there, `\xHH` for control bytes and for bytes that are no UTF-8.
void appendEscapedName(std::string& out, std::string_view name);

/// The value of a hexadecimal digit; nothing for another byte.
[[nodiscard]] std::optional<unsigned> hexDigit(char byte);

/// Appends `\xHH`.
void appendHexEscape(std::string& out, char byte);

}  // namespace treectl
