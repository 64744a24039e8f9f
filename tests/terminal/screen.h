#pragma once

#include <cstddef>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

struct VTerm;
struct VTermScreen;

namespace terminal_test {

enum class Colour { standard, white, red, green, blue, other };

/// How a character is shown.
struct Look {
  bool bold = false;
  bool underline = false;
  bool blink = false;
  bool reverse = false;
  Colour colour = Colour::standard;
  bool operator==(const Look&) const = default;
};

/// Prints a look in words, such as "bold green".
void PrintTo(const Look& look, std::ostream* out);

/// A position on the screen, counted from 0 at the upper left.
struct Place {
  int row = 0;
  int column = 0;
  bool operator==(const Place&) const = default;
};

/// What the user sees: the screen of a UTF-8 terminal after the bytes that a program has
/// written to it. For one thread.
class Screen {
 public:
  Screen(int rows, int columns);
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  void write(std::string_view bytes);
  void resize(int rows, int columns);

  [[nodiscard]] int rows() const;
  [[nodiscard]] int columns() const;
  [[nodiscard]] Place cursor() const;

  /// The text of a row, without the spaces at its end.
  [[nodiscard]] std::string row(int index) const;

  /// All rows, each followed by a line feed, without the empty rows at the end.
  [[nodiscard]] std::string text() const;

  /// The text of the cursor's row with a "|" for the cursor, before the character that
  /// the cursor covers.
  [[nodiscard]] std::string cursorLine() const;

  /// The position of `text` within one row, the topmost and leftmost if there are
  /// several. Assumes one column per byte.
  [[nodiscard]] std::optional<Place> find(std::string_view text) const;

  /// The number of rows that contain `text`.
  [[nodiscard]] int rowsWith(std::string_view text) const;

  [[nodiscard]] Look look(Place place) const;

  /// How `text` is shown at the position that `find` returns. No value if it is not on
  /// the screen or its characters differ in look.
  [[nodiscard]] std::optional<Look> lookOf(std::string_view text) const;

  /// The screen in a frame, and the position of its cursor.
  [[nodiscard]] std::string picture() const;

 private:
  [[nodiscard]] std::string cells(int row, int from, int to) const;

  VTerm* terminal_;
  VTermScreen* screen_;
};

}  // namespace terminal_test
