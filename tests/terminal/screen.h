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

/// Says a look in words, such as "bold green".
void PrintTo(const Look& look, std::ostream* out);

/// A place on the screen, counted from 0 at the upper left.
struct Place {
  int row = 0;
  int column = 0;
  bool operator==(const Place&) const = default;
};

/// What a person sees: the screen of a terminal that understands UTF-8, after the
/// bytes that a program has written to it. For one thread.
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

  /// The text of a row, without the blanks at its end.
  [[nodiscard]] std::string row(int index) const;

  /// All rows, each with a line feed, without the empty ones at the end.
  [[nodiscard]] std::string text() const;

  /// The text of the cursor's row with a "|" where the cursor stands: before the
  /// character that it covers.
  [[nodiscard]] std::string cursorLine() const;

  /// Where `text` stands within one row; the topmost and leftmost place. One
  /// column a byte is assumed.
  [[nodiscard]] std::optional<Place> find(std::string_view text) const;

  /// How many rows hold `text`.
  [[nodiscard]] int rowsWith(std::string_view text) const;

  [[nodiscard]] Look look(Place place) const;

  /// How `text` is shown, where `find` finds it; nothing where it is not there or
  /// its characters differ.
  [[nodiscard]] std::optional<Look> lookOf(std::string_view text) const;

  /// The screen in a frame, and where its cursor is.
  [[nodiscard]] std::string picture() const;

 private:
  [[nodiscard]] std::string cells(int row, int from, int to) const;

  VTerm* terminal_;
  VTermScreen* screen_;
};

}  // namespace terminal_test
