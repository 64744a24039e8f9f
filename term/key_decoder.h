#pragma once

#include <optional>

namespace treescope {

/// The codes of the keys that the line editor handles.
///
/// A byte is its own code, 0 to 255. The keys that a terminal sends as an escape
/// sequence have the numbers that curses uses.
enum KeyCode : int {
  KEY_DOWN = 258,
  KEY_UP = 259,
  KEY_LEFT = 260,
  KEY_RIGHT = 261,
  KEY_HOME = 262,
  KEY_BACKSPACE = 263,
  KEY_DC = 330,     ///< Delete
  KEY_IC = 331,     ///< Insert
  KEY_NPAGE = 338,  ///< Page Down
  KEY_PPAGE = 339,  ///< Page Up
  KEY_ENTER = 343,
  KEY_END = 360,
};

/// Decodes the bytes of a terminal into key codes, one byte at a time.
///
/// Reads nothing itself; for one thread. It knows the arrow keys as ESC [ A to D, and
/// ESC [ N ~ with N = 1, 3, 4, 5 or 6 as Home, Delete, End, Page Up and Page Down. The
/// bytes of an incomplete sequence are dropped; the byte that ends it early is a key of
/// its own. The rest of an unknown sequence is delivered as text.
class KeyDecoder {
 public:
  /// The key that `byte` completes; no value while `byte` may belong to a sequence. A
  /// value that is not a byte is delivered unchanged.
  std::optional<int> take(int byte);

 private:
  enum class State { clean, afterEscape, afterBracket, afterDigit };

  std::optional<int> deliver(int key);
  std::optional<int> takeDigit(int digit);
  std::optional<int> takeArrow(int letter);
  std::optional<int> takeTilde();

  State state_ = State::clean;
  int digit_ = 0;
};

}  // namespace treescope
