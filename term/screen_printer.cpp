#include "term/screen_printer.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <string>

#include "term/escape_sequences.h"
#include "term/standard_output.h"

namespace treescope {

namespace {

winsize terminalSize() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) {
    return {};
  }
  return size;
}

}  // namespace

int terminalColumns() {
  return terminalSize().ws_col;
}

int terminalRows() {
  return terminalSize().ws_row;
}

bool ScreenPrinter::printLine(const StyledText& item, bool paging) {
  if (!countLine(paging)) {
    return false;
  }
  std::string line;
  if (batch_ && item.text == nullptr) {
    appendStyleOff(line, item.style());
  } else {
    appendLineStart(line, item.style());
    line += item.text == nullptr ? "" : item.text;
    appendLineEnd(line, item.style());
  }
  write(line);
  return true;
}

void ScreenPrinter::appendLineStart(std::string& text, Style style) const {
  if (!batch_) {
    appendStyleOn(text, style);
    appendCursorToColumn(text, 1);
  }
}

void ScreenPrinter::appendLineEnd(std::string& text, Style style) const {
  text += '\n';
  appendStyleOff(text, style);
}

bool ScreenPrinter::printLineReset(const StyledText& item, bool reset, bool paging) {
  if (reset) {
    resetCount();
  }
  return printLine(item, paging);
}

void ScreenPrinter::printStyled(const StyledText& item) {
  printStyledAt(1, linesShown_, item);
}

void ScreenPrinter::printStyledAt(int column, int /*row*/, const StyledText& item) {
  std::string text;
  appendStyledAt(text, column, item);
  write(text);
}

void ScreenPrinter::printAt(int column, int /*row*/, const char* text) {
  std::string placed;
  appendAt(placed, column, text);
  write(placed);
}

void ScreenPrinter::appendStyledAt(std::string& text, int column, const StyledText& item) const {
  if (!batch_) {
    appendStyleOn(text, item.style());
  }
  appendAt(text, column, item.text);
  appendStyleOff(text, item.style());
}

void ScreenPrinter::appendAt(std::string& text, int column, const char* shown) const {
  if (!batch_) {
    appendCursorToColumn(text, column);
  }
  if (shown != nullptr) {
    text += shown;
    if (batch_) {
      text += '\n';
    }
  }
}

void ScreenPrinter::write(const std::string& text) {
  printText(text);
}

void ScreenPrinter::setAttributes(std::uint32_t attributes, std::uint32_t colour) {
  if (!batch_) {
    write(styleOn({.attributes = attributes, .colour = colour}));
  }
}

void ScreenPrinter::resetAttributes(std::uint32_t attributes, std::uint32_t colour) {
  write(styleOff({.attributes = attributes, .colour = colour}));
}

}  // namespace treescope
