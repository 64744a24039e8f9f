#pragma once

#include <optional>

namespace treescope {

/// Folds the escape sequences of a terminal's special keys into key codes
/// (`term/key_codes.h`), a byte at a time.
///
/// A state machine that reads nothing itself; for one thread. It knows the arrow
/// keys as ESC [ A to D, and ESC [ N ~ with an N of 1, 3, 4, 5 and 6: Home,
/// Delete, End, Page Up, Page Down. A sequence that breaks off loses the bytes
/// taken so far; the byte that breaks it is a key of its own. What else a
/// terminal sends behind ESC comes out as text.
class KeyDecoder {
 public:
  /// The key that `byte` completes; nothing while it may belong to a sequence.
  /// Values that are no byte are keys as they are.
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
