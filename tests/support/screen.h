#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

struct VTerm;
struct VTermScreen;

namespace test_support {

enum class Colour { standard, white, red, green, blue, other };

/// How a character looks.
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
struct Position {
  int row = 0;
  int column = 0;
  bool operator==(const Position&) const = default;
};

/// A character on the screen with all of its colours.
struct Cell {
  std::string text;  ///< in UTF-8; empty if there is none
  int columns = 1;   ///< 2 for a wide character, 0 for the right half of one
  bool bold = false;
  bool underline = false;
  bool reverse = false;
  /// As 0xRRGGBB; nothing for the terminal's own colour.
  std::optional<std::uint32_t> foreground = {};
  std::optional<std::uint32_t> background = {};
};

/// What a user sees: the screen of a UTF-8 terminal, after the bytes that a program
/// has written to it. For one thread.
class Screen {
 public:
  /// A terminal may report no rows or columns; the screen then has one.
  Screen(int rows, int columns);
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  void write(std::string_view bytes);
  void resize(int rows, int columns);

  [[nodiscard]] int rows() const;
  [[nodiscard]] int columns() const;
  [[nodiscard]] Position cursor() const;

  /// The text of a row, without the spaces at its end.
  [[nodiscard]] std::string row(int index) const;

  /// All rows, each with a line feed, without the empty ones at the end.
  [[nodiscard]] std::string text() const;

  /// The text of the cursor's row with a "|" for the cursor, before the character that
  /// it covers.
  [[nodiscard]] std::string cursorLine() const;

  /// Where a row contains `text`: the topmost and leftmost position. Assumes that
  /// each byte takes one column.
  [[nodiscard]] std::optional<Position> find(std::string_view text) const;

  /// How many rows contain `text`.
  [[nodiscard]] int rowsWith(std::string_view text) const;

  [[nodiscard]] Look look(Position position) const;
  [[nodiscard]] Cell cell(Position position) const;

  /// How many rows there are from the top to the last one that is not empty.
  [[nodiscard]] int usedRows() const;

  /// The look of `text` where `find` finds it; nothing if it is not on the screen or
  /// its characters differ.
  [[nodiscard]] std::optional<Look> lookOf(std::string_view text) const;

  /// The screen in a frame, and the position of its cursor.
  [[nodiscard]] std::string picture() const;

 private:
  [[nodiscard]] std::string cells(int row, int from, int to) const;

  VTerm* terminal_;
  VTermScreen* screen_;
};

}  // namespace test_support
