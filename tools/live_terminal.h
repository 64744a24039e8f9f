#pragma once

#include <termios.h>

#include <optional>
#include <string>

#include "tools/display/cell_text.h"
#include "tools/display/painter.h"
#include "tools/output.h"

namespace treectl {

/// The terminal while a command paints on it: standard output, with keys from standard input if
/// that is a terminal too. What was on the screen comes back at the end. For one thread.
class LiveTerminal {
 public:
  /// Why nothing can be painted, for the user; nothing if it can.
  [[nodiscard]] static std::optional<std::string> problem();

  /// Begins to paint. `output` outlives this object.
  LiveTerminal(Output& output, bool colored);
  /// Restores the screen and the mode.
  ~LiveTerminal();
  LiveTerminal(const LiveTerminal&) = delete;
  LiveTerminal& operator=(const LiveTerminal&) = delete;

  [[nodiscard]] const Style& style() const { return style_; }
  [[nodiscard]] Size size() const { return size_; }

  /// Shows `lines`, by one write; nothing is written if they are shown already.
  void show(const std::vector<ScreenLine>& lines);

  /// Takes the new size. The next picture is painted whole.
  void resize();

  /// Restores the terminal, stops the program until it is continued, and begins again.
  void suspend();

  /// Begins again after the program was stopped in the middle, when others may have used the
  /// terminal.
  void resume();

  /// Becomes readable with a key; negative if there are none.
  [[nodiscard]] int keys() const { return keys_; }
  /// Whether one of the keys that have been pressed ends the command. At the end of the input there
  /// are no keys any more.
  [[nodiscard]] bool readKeys();

 private:
  void begin();
  void end();

  Output& output_;
  Style style_;
  Size size_;
  Painter painter_;
  int keys_;
  std::optional<termios> mode_;  ///< before
};

}  // namespace treectl
