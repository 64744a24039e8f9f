#include "term/line_editor.h"

#include <cstdio>
#include <cstring>
#include <exception>
#include <utility>

#include "term/escape_sequences.h"
#include "term/key_decoder.h"
#include "term/standard_output.h"
#include "term/terminal_mode.h"
#include "utilsrv/thread.h"

namespace treescope {

namespace {

// A pasted line that is longer than this is drawn when the paste pauses: drawn after
// each byte, 100 KB would be 5 GB of output.
constexpr std::size_t longLine = 1024;

}  // namespace

LineEditor::LineEditor(int owner, bool batch, LineEditorHost host)
    : owner_(owner), batch_(batch), host_(std::move(host)) {
  if (!batch_) {
    repaintRequests_.emplace();
    reader_ = std::make_unique<UtilSrv::Thread>(&LineEditor::readKeys, this, nullptr);
  }
}

LineEditor::~LineEditor() {
  if (!readingStarted_) {
    running_ = false;
    startReading();
  }
}

void LineEditor::startReading() {
  readingStarted_ = true;
  readingStarted_.notify_all();
  if (reader_ != nullptr && !reader_->started() && running_) {
    static_cast<void>(std::fputs("treescope: cannot start a thread to read keys\n", stderr));
    host_.endOfInput();
  }
}

int LineEditor::readKeys(void* editor) {
  LineEditor& self = *static_cast<LineEditor*>(editor);
  {
    const SignalStack signalStack;
    self.readingStarted_.wait(false);
    self.readUntilEnd();
  }
  UtilSrv::Thread::exit(0);
}

void LineEditor::readUntilEnd() {
  KeyDecoder decoder;
  const std::function<void()> repaintLine = [this] { repaint(); };
  while (running_) {
    const int byte = readKeyByte(repaintLine);
    if (byte == endOfKeys) {
      endInput();
      return;
    }
    const bool moreWaits = line().size() > longLine && keyWaiting();
    if (const std::optional<int> key = decoder.take(byte)) {
      deferRepaint_ = moreWaits;
      handleKey(*key);
      deferRepaint_ = false;
    } else if (!moreWaits) {
      flushRepaint();
    }
  }
}

void LineEditor::endInput() {
  flushRepaint();
  printText("\n");
  host_.endOfInput();
}

void LineEditor::showPrompt(const char* name, const char* initialText) {
  if (batch_) {
    return;
  }
  const OutputSpan span;
  printText(cursorToColumn(0));
  printText("[");
  printText(name);
  printText("]$ ");
  constexpr int frameAndNextColumn = 5;
  textColumn_ = static_cast<int>(std::strlen(name)) + frameAndNextColumn;
  if (initialText != nullptr) {
    buffer_.setText(initialText);
  }
  redrawLine();
  moveCursor(end);
}

void LineEditor::reprompt() {
  showPrompt(host_.promptText().c_str(), nullptr);
}

void LineEditor::redrawLine() {
  if (batch_) {
    return;
  }
  const OutputSpan span;
  repaintPending_ = false;
  printText(cursorToColumn(textColumn_));
  printText(line().c_str());
  printText(eraseToLineEnd);
}

void LineEditor::moveCursor(int how) {
  if (batch_) {
    return;
  }
  switch (how) {
    case start:
    case 5:
      buffer_.moveToStart();
      break;
    case end:
    case 6:
      buffer_.moveToEnd();
      break;
    case right:
      buffer_.moveRight();
      break;
    case left:
      buffer_.moveLeft();
      break;
    default:
      break;
  }
  printText(cursorToColumn(textColumn_ + static_cast<int>(cursor())));
}

/// Draws the line and the cursor after a change of both.
void LineEditor::drawEdit() {
  if (batch_) {
    buffer_.moveToStart();
    return;
  }
  const OutputSpan span;
  redrawLine();
  moveCursor(stay);
}

void LineEditor::insertKey(int code) {
  buffer_.insertKey(code);
  drawEdit();
}

void LineEditor::clearLine() {
  buffer_.clear();
  drawEdit();
}

void LineEditor::killLine(bool toEnd) {
  if (toEnd) {
    buffer_.killToEnd();
  } else {
    buffer_.killToStart();
  }
  drawEdit();
}

void LineEditor::historyBack(std::uint8_t steps) {
  buffer_.browseOlder(steps);
  drawEdit();
}

void LineEditor::historyForward(std::uint8_t steps) {
  buffer_.browseNewer(steps);
  drawEdit();
}

void LineEditor::replaceLastWord(const std::string& word) {
  if (buffer_.replaceLastWord(word)) {
    drawEdit();
  }
}

void LineEditor::flushRepaint() {
  if (repaintPending_) {
    drawEdit();
  }
}

void LineEditor::repaint() {
  try {
    const OutputSpan span;
    const std::uint32_t kept = cursor();
    reprompt();
    buffer_.moveTo(kept);
    moveCursor(stay);
  } catch (const std::exception&) {
    // No memory for the prompt's text: only the line is drawn.
    redrawLine();
    moveCursor(stay);
  }
}

}  // namespace treescope
