// The pager of the screen printer.

#include "term/escape_sequences.h"
#include "term/key_input.h"
#include "term/screen_printer.h"

namespace treescope {

namespace {

constexpr Style moreStyle{.attributes = attributeReverse | attributeBlink};

}  // namespace

bool ScreenPrinter::countLine(bool paging) {
  if (batch_) {
    return true;
  }
  const int rows = size_.rows();
  const int limit = paging ? rows - 2 : rows - 1;
  if (limit > linesShown_) {
    ++linesShown_;
    pageLines_ += paging ? 1 : 0;
    return true;
  }
  if (!paging) {
    return true;
  }
  if (limit > pageLines_) {
    ++pageLines_;
    return true;
  }
  const std::string more = styleOn(moreStyle) + "More" + styleOff(moreStyle);
  write(more);
  const int key = readKeyByte([&] { write(cursorToColumn(1) + more); });
  write(eraseLine);
  if (key == 'q' || key == endOfKeys) {
    return false;
  }
  if (key != '\n') {
    pageLines_ = 1;
  }
  return true;
}

void ScreenPrinter::resetCount() {
  linesShown_ = 0;
  pageLines_ = 0;
}

}  // namespace treescope
