#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "term/styled_text.h"

namespace treescope {

/// The size of the terminal on standard output, queried on each call (TIOCGWINSZ,
/// ioctl_tty(2)) because a window may be resized at any time. Any thread. Both return 0
/// if standard output is not a terminal or the terminal does not know its size; there is
/// no default size.
[[nodiscard]] int terminalColumns();
[[nodiscard]] int terminalRows();

/// How a printer gets the size of the terminal. Called each time the size is needed, on
/// every thread that prints. Neither may be empty.
struct TerminalSizeSource {
  std::function<int()> columns = terminalColumns;
  std::function<int()> rows = terminalRows;
};

/// Prints lines and items with their attributes on standard output, for commands,
/// messages and listings.
///
/// Interactively an item is placed by its column and styled; in batch mode only the
/// texts are written, one per line. Output stays in the buffer of the standard library;
/// the caller flushes it before it waits for the user or starts another program.
///
/// Threads: commands print on the thread that runs them, the update display on the main
/// thread. Every operation passes all its bytes to `printText` in one call, so other threads'
/// output does not divide a line; the order of lines of different threads is not defined. The
/// counters are atomic. Write errors are ignored: they could be reported nowhere but on the same
/// output.
class ScreenPrinter {
 public:
  /// `owner` is kept for the caller and has no effect here.
  ScreenPrinter(int owner, bool batch, TerminalSizeSource size = {})
      : owner_(owner), batch_(batch), size_(std::move(size)) {}
  ScreenPrinter(const ScreenPrinter&) = delete;
  ScreenPrinter& operator=(const ScreenPrinter&) = delete;

  [[nodiscard]] int owner() const { return owner_; }
  [[nodiscard]] bool batch() const { return batch_; }

  /// Writes `item.text` as one line, styled. With `paging` the output stops after each
  /// screenful (`countLine`). Returns false, having written nothing, if the user quit.
  bool printLine(const StyledText& item, bool paging);

  /// The same; with `reset` the line is the first of a new listing.
  bool printLineReset(const StyledText& item, bool reset, bool paging);

  /// Writes `item` at the first column of the current line, without ending the line.
  void printStyled(const StyledText& item);

  /// Writes `item` at `column` (from 1) of the current line, without ending the line.
  /// `row` is ignored.
  void printStyledAt(int column, int row, const StyledText& item);

  /// Writes `text` at `column` (from 1) of the current line, or in batch mode as a line
  /// of its own. A null `text` writes nothing. `row` is ignored.
  void printAt(int column, int row, const char* text);

  /// Appends to `text` what `printStyledAt` would write. For rows of several items,
  /// which are then written in one call.
  void appendStyledAt(std::string& text, int column, const StyledText& item) const;

  // What `printLine` writes before and after the text of a line, for listings of very
  // many lines (`OutputBlock`).

  void appendLineStart(std::string& text, Style style) const;
  void appendLineEnd(std::string& text, Style style) const;

  /// Writes `text` unchanged.
  void write(const std::string& text);

  /// Switches attributes and colour on. No effect in batch mode.
  void setAttributes(std::uint32_t attributes, std::uint32_t colour);

  /// Switches attributes and colour off, in batch mode too.
  void resetAttributes(std::uint32_t attributes, std::uint32_t colour);

  /// The pager: counts the line, or row of columns, that is about to be written. If the
  /// screen is full and `paging` is set, shows "More" and reads one byte from standard
  /// input: 'q' or the end of input ends the listing, Return continues for one line, any
  /// other byte for a screenful. Returns false if the listing is to end. In batch mode
  /// nothing is counted and nothing stops.
  [[nodiscard]] bool countLine(bool paging);

  /// Resets the counters: a new listing follows.
  void resetCount();

  /// The columns of the terminal; 0 if unknown, and in batch mode.
  [[nodiscard]] int screenColumns() const { return batch_ ? 0 : size_.columns(); }

  /// Lines counted since the last reset, up to the first full screen.
  [[nodiscard]] int linesShown() const { return linesShown_; }
  /// Lines counted on the current page.
  [[nodiscard]] int pageLines() const { return pageLines_; }

 private:
  void appendAt(std::string& text, int column, const char* shown) const;

  const int owner_;
  std::atomic<int> linesShown_{0};
  std::atomic<int> pageLines_{0};
  const bool batch_;
  const TerminalSizeSource size_;
};

}  // namespace treescope
