#include "term/screen_printer.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "term/escape_sequences.h"

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
    appendStyleOff(line, item.attributes, item.colour);
  } else {
    appendLineStart(line, item.attributes, item.colour);
    line += item.text == nullptr ? "" : item.text;
    appendLineEnd(line, item.attributes, item.colour);
  }
  write(line);
  return true;
}

void ScreenPrinter::appendLineStart(std::string& text, std::uint32_t attributes,
                                    std::uint32_t colour) const {
  if (!batch_) {
    appendStyleOn(text, attributes, colour);
    appendCursorToColumn(text, 1);
  }
}

void ScreenPrinter::appendLineEnd(std::string& text, std::uint32_t attributes,
                                  std::uint32_t colour) const {
  text += '\n';
  appendStyleOff(text, attributes, colour);
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
    appendStyleOn(text, item.attributes, item.colour);
  }
  appendAt(text, column, item.text);
  appendStyleOff(text, item.attributes, item.colour);
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
  std::fwrite(text.data(), 1, text.size(), stdout);
}

void ScreenPrinter::setAttributes(std::uint32_t attributes, std::uint32_t colour) {
  if (!batch_) {
    write(styleOn(attributes, colour));
  }
}

void ScreenPrinter::resetAttributes(std::uint32_t attributes, std::uint32_t colour) {
  write(styleOff(attributes, colour));
}

}  // namespace treescope
