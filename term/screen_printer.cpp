#include "term/screen_printer.h"

#include <cstdio>
#include <string>

#include "term/escape_sequences.h"

namespace treescope {

namespace {

void write(const std::string& sequences) {
  std::fputs(sequences.c_str(), stdout);
}

}  // namespace

bool ScreenPrinter::printLine(const StyledText& item, bool paging) {
  if (!countLine(paging)) {
    return false;
  }
  setAttributes(item.attributes, item.colour);
  printAt(1, linesShown_, item.text);
  if (!batch_) {
    std::putchar('\n');
  }
  resetAttributes(item.attributes, item.colour);
  return true;
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

void ScreenPrinter::printStyledAt(int column, int row, const StyledText& item) {
  setAttributes(item.attributes, item.colour);
  printAt(column, row, item.text);
  resetAttributes(item.attributes, item.colour);
}

void ScreenPrinter::printAt(int column, int /*row*/, const char* text) {
  if (batch_) {
    if (text != nullptr) {
      std::puts(text);
    }
    return;
  }
  write(cursorToColumn(column));
  if (text != nullptr) {
    std::fputs(text, stdout);
  }
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
