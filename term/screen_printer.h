#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "term/styled_text.h"
#include "term/terminal_size.h"

namespace treescope {

/// Whom a printer asks how large the terminal is, each time that it matters; from
/// every thread that prints. Neither may be empty.
struct TerminalSizeSource {
  std::function<int()> columns = terminalColumns;
  std::function<int()> rows = terminalRows;
};

/// What commands, messages and listings are written with: lines and items, with
/// their attributes, on standard output.
///
/// Interactively an item is placed by its column and styled; in batch mode the
/// texts alone are written, a line each. Output is left in the standard library's
/// buffer; whoever waits for a person or starts another program flushes it.
///
/// Threads: commands print from the thread that runs them, the update display
/// from the main thread. Every operation hands all its bytes to standard output in
/// one call, which has its own lock, so that no line is divided by another
/// thread's; nothing orders the lines. The counters are atomic. A write that the
/// system refuses is lost silently: there is nowhere left to report it.
class ScreenPrinter {
 public:
  /// `owner` is kept for the caller and has no influence here.
  ScreenPrinter(int owner, bool batch, TerminalSizeSource size = {})
      : owner_(owner), batch_(batch), size_(std::move(size)) {}
  ScreenPrinter(const ScreenPrinter&) = delete;
  ScreenPrinter& operator=(const ScreenPrinter&) = delete;

  [[nodiscard]] int owner() const { return owner_; }
  [[nodiscard]] bool batch() const { return batch_; }

  /// Writes `item.text` as one line, styled. With `paging` the output stops at
  /// each screenful and asks (`countLine`). Returns false, having written
  /// nothing, when the person had enough.
  bool printLine(const StyledText& item, bool paging);

  /// The same; with `reset` the line is the first of a new listing.
  bool printLineReset(const StyledText& item, bool reset, bool paging);

  /// Writes `item` at the first column of the current line, without ending it.
  void printStyled(const StyledText& item);

  /// Writes `item` at `column` (from 1) of the current line, without ending it.
  /// `row` is not used: the current line it is.
  void printStyledAt(int column, int row, const StyledText& item);

  /// Writes `text` (may be null: nothing) at `column`; in batch mode as a line of
  /// its own, wherever that is. `row` is not used.
  void printAt(int column, int row, const char* text);

  /// Appends to `text` what `printStyledAt` would write, for rows of several
  /// items, which `write` then puts out whole.
  void appendStyledAt(std::string& text, int column, const StyledText& item) const;

  // What `printLine` writes before and behind a line's text, for listings of very
  // many lines (`OutputBlock`).

  void appendLineStart(std::string& text, std::uint32_t attributes, std::uint32_t colour) const;
  void appendLineEnd(std::string& text, std::uint32_t attributes, std::uint32_t colour) const;

  /// Writes `text` as it is.
  void write(const std::string& text);

  /// Switches attributes and colour on; nothing in batch mode.
  void setAttributes(std::uint32_t attributes, std::uint32_t colour);

  /// Switches them off, in batch mode too.
  void resetAttributes(std::uint32_t attributes, std::uint32_t colour);

  /// The pager: counts the line (or row of columns) that is about to be written.
  /// When a screenful is there and `paging` is set, it shows "More" and reads one
  /// byte from standard input: 'q', or the end of input, ends the listing, Return
  /// lets one line through, anything else a screenful. Returns false when the
  /// listing is to end. Batch mode counts nothing.
  [[nodiscard]] bool countLine(bool paging);

  /// Starts the counting anew: what follows is a new listing.
  void resetCount();

  /// The columns of the terminal, asked anew; 0 where it does not know, and in
  /// batch mode.
  [[nodiscard]] int screenColumns() const { return batch_ ? 0 : size_.columns(); }

  /// Lines counted since the last reset; it stays at the first full screen.
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
