#pragma once

/// The codes of the keys that the line editor works on.
///
/// A byte is its own code, 0 to 255. The keys that terminals send as a sequence
/// have the numbers that curses gives them.

namespace treescope {

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

}  // namespace treescope
