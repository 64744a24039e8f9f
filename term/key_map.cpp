// The keys of the line editor and what each does.

#include <algorithm>
#include <array>
#include <exception>
#include <stdexcept>

#include "term/escape_sequences.h"
#include "term/key_decoder.h"
#include "term/line_editor.h"
#include "term/standard_output.h"

namespace treescope {

namespace {

constexpr int returnKey = 10;
constexpr int tabKey = 9;
constexpr int deleteByte = 127;
constexpr std::uint8_t linesPerPage = 10;

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
    // Any other exception means that memory ran out.
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

void LineEditor::recover(int code, const std::function<void()>& report) {
  const bool onNewLine = code == tabKey || code == returnKey || code == KEY_ENTER;
  try {
    const OutputSpan span;
    if (!onNewLine) {
      printText("\n");
    }
    if (report) {
      report();
    }
    // Killing past the end has changed nothing, and the line is still as it was typed.
    if (code != control('K')) {
      clearLine();
    }
    reprompt();
  } catch (const std::exception&) {
    // No memory for a prompt either: the next key starts with an empty line.
    buffer_.clear();
  }
}

void LineEditor::typeText(int code) {
  if (!deferRepaint_) {
    insertKey(code);
    return;
  }
  buffer_.insertKey(code);
  repaintPending_ = true;
}

void LineEditor::deleteBackward() {
  if (!buffer_.deleteBackward()) {
    return;
  }
  const OutputSpan span;
  const std::uint32_t kept = cursor();
  printText(eraseLine);
  reprompt();
  redrawLine();
  buffer_.moveTo(kept);
  moveCursor(stay);
}

void LineEditor::goToStart() {
  const OutputSpan span;
  reprompt();
  redrawLine();
  moveCursor(start);
}

void LineEditor::goToEnd() {
  moveCursor(end);
}

void LineEditor::goLeft() {
  if (cursor() > 0) {
    moveCursor(left);
  }
}

void LineEditor::goRight() {
  if (cursor() < line().size()) {
    moveCursor(right);
  }
}

void LineEditor::deleteAtCursor() {
  if (buffer_.deleteAtCursor()) {
    drawEdit();
  }
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
  historyBack(linesPerPage);
}

void LineEditor::goPageForward() {
  historyForward(linesPerPage);
}

// Whatever presents the candidates prints the prompt again.
void LineEditor::complete() {
  printText("\n");
  const std::size_t first = std::min(line().find_first_not_of(' '), line().size());
  const std::string command = "tab " + line().substr(first);
  static_cast<void>(host_.runLine(command.c_str()));
}

void LineEditor::accept() {
  printText("\n");
  if (line().empty()) {
    reprompt();
    return;
  }
  // A copy: the line that runs may replace the editor's.
  const std::string accepted = buffer_.accept();
  flushOutput();
  if (!host_.runLine(accepted.c_str())) {
    return;
  }
  const OutputSpan span;
  clearLine();
  reprompt();
}

}  // namespace treescope
