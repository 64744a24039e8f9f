#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <stdexcept>

#include "term/escape_sequences.h"
#include "term/history.h"
#include "term/key_decoder.h"
#include "term/line_editor.h"
#include "term/output_block.h"

namespace treescope {

namespace {

constexpr int returnKey = 10;
constexpr int tabKey = 9;
constexpr int deleteByte = 127;
constexpr std::uint8_t pageOfLines = 10;

constexpr int control(char letter) {
  return letter & 0x1F;
}

}  // namespace

LineEditor::Action LineEditor::actionOf(int code) {
  struct Row {
    int code;
    Action action;
  };
  static constexpr std::array<Row, 25> keyMap{{
      {deleteByte, &LineEditor::deleteBackward},
      {control('H'), &LineEditor::deleteBackward},
      {KEY_BACKSPACE, &LineEditor::deleteBackward},
      {control('A'), &LineEditor::goToStart},
      {KEY_HOME, &LineEditor::goToStart},
      {control('B'), &LineEditor::goLeft},
      {KEY_LEFT, &LineEditor::goLeft},
      {control('F'), &LineEditor::goRight},
      {KEY_RIGHT, &LineEditor::goRight},
      {control('E'), &LineEditor::goToEnd},
      {KEY_END, &LineEditor::goToEnd},
      {control('D'), &LineEditor::deleteAtCursor},
      {KEY_DC, &LineEditor::deleteAtCursor},
      {control('K'), &LineEditor::killToEnd},
      {control('W'), &LineEditor::killToStart},
      {control('P'), &LineEditor::goBack},
      {KEY_UP, &LineEditor::goBack},
      {control('N'), &LineEditor::goForward},
      {KEY_DOWN, &LineEditor::goForward},
      {KEY_PPAGE, &LineEditor::goPageBack},
      {KEY_NPAGE, &LineEditor::goPageForward},
      {KEY_IC, &LineEditor::ignore},
      {tabKey, &LineEditor::complete},
      {returnKey, &LineEditor::accept},
      {KEY_ENTER, &LineEditor::accept},
  }};
  const auto* const row = std::find_if(keyMap.begin(), keyMap.end(),
                                       [code](const Row& each) { return each.code == code; });
  return row == keyMap.end() ? nullptr : row->action;
}

void LineEditor::handleKey(int code) {
  try {
    dispatchKey(code);
  } catch (const std::out_of_range&) {
    recover(code, host_.rangeError);
  } catch (const std::exception&) {
    // Only the want of memory can end a key otherwise.
    recover(code, host_.outOfMemory);
  }
}

void LineEditor::dispatchKey(int code) {
  const Action action = actionOf(code);
  if (action == nullptr) {
    typeText(code);
    return;
  }
  flushRepaint();
  (this->*action)();
}

void LineEditor::recover(int code, const std::function<void()>& tell) {
  const bool onNewLine = code == tabKey || code == returnKey || code == KEY_ENTER;
  try {
    const OutputSpan span;
    if (!onNewLine) {
      std::putchar('\n');
    }
    if (tell) {
      tell();
    }
    clearLine();
    reprompt();
  } catch (const std::exception&) {
    // Not even memory for a prompt: the next key starts with an empty line.
    line_.clear();
    cursor_ = 0;
  }
}

void LineEditor::typeText(int code) {
  if (!deferRepaint_) {
    insertKey(code);
    return;
  }
  insertText(code);
  ++cursor_;
  repaintOwed_ = true;
}

void LineEditor::deleteBackward() {
  if (cursor_ == 0 || line_.empty()) {
    return;
  }
  if (cursor_ <= line_.size()) {
    line_.erase(cursor_ - 1, 1);
  }
  const OutputSpan span;
  const std::uint32_t kept = cursor_;
  std::fputs(eraseLine, stdout);
  reprompt();
  redrawLine();
  cursor_ = kept;
  moveCursor(4);
}

void LineEditor::goToStart() {
  const OutputSpan span;
  reprompt();
  redrawLine();
  moveCursor(5);
}

void LineEditor::goToEnd() {
  moveCursor(6);
}

void LineEditor::goLeft() {
  if (cursor_ > 0) {
    moveCursor(4);
  }
}

void LineEditor::goRight() {
  if (cursor_ < line_.size()) {
    moveCursor(3);
  }
}

void LineEditor::deleteAtCursor() {
  if (cursor_ >= line_.size()) {
    return;
  }
  line_.erase(cursor_, 1);
  const OutputSpan span;
  redrawLine();
  moveCursor(0);
}

void LineEditor::killToEnd() {
  killLine(true);
}

void LineEditor::killToStart() {
  killLine(false);
}

void LineEditor::goBack() {
  historyBack(1);
}

void LineEditor::goForward() {
  historyForward(1);
}

void LineEditor::goPageBack() {
  historyBack(pageOfLines);
}

void LineEditor::goPageForward() {
  historyForward(pageOfLines);
}

// The candidates' presenter prints the prompt again.
void LineEditor::complete() {
  std::putchar('\n');
  const std::size_t first = std::min(line_.find_first_not_of(' '), line_.size());
  const std::string request = "tab " + line_.substr(first);
  static_cast<void>(host_.runLine(request.c_str()));
}

void LineEditor::accept() {
  std::putchar('\n');
  if (line_.empty()) {
    reprompt();
    return;
  }
  const Expansion expansion = expandHistory(line_, history_);
  line_ = expansion.run;
  history_.push_back(expansion.stored);
  browsing_ = false;
  std::fflush(stdout);
  if (!host_.runLine(expansion.run.c_str())) {
    return;
  }
  const OutputSpan span;
  clearLine();
  reprompt();
}

}  // namespace treescope
