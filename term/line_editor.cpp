#include "term/line_editor.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <utility>

#include "term/escape_sequences.h"
#include "term/key_decoder.h"
#include "term/output_block.h"
#include "utilsrv/thread.h"

namespace treescope {

namespace {

// From this length on a line that is pasted is shown when the paste pauses: shown
// a byte at a time, 100 KB would be 5 GB of output.
constexpr std::size_t longLine = 1024;

// Whether it reached the terminal is not asked: there is nowhere else to say so.
void print(const char* text) {
  std::fputs(text, stdout);
}

void print(const std::string& text) {
  print(text.c_str());
}

}  // namespace

LineEditor::LineEditor(int owner, bool batch, LineEditorHost host)
    : owner_(owner), batch_(batch), host_(std::move(host)) {
  if (!batch_) {
    wishes_.emplace();
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
    host_.endOfInput();
  }
}

int LineEditor::readKeys(void* editor) {
  LineEditor& self = *static_cast<LineEditor*>(editor);
  self.readingStarted_.wait(false);
  self.takeKeys();
  UtilSrv::Thread::exit(0);
}

void LineEditor::takeKeys() {
  KeyDecoder decoder;
  const std::function<void()> repaintLine = [this] { repaint(); };
  while (running_) {
    const int byte = readKeyByte(repaintLine);
    if (byte == endOfKeys) {
      endInput();
      return;
    }
    const bool moreWaits = line_.size() > longLine && keyWaiting();
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
  std::putchar('\n');
  host_.endOfInput();
}

void LineEditor::showPrompt(const char* name, const char* initialText) {
  if (batch_) {
    return;
  }
  const OutputSpan span;
  print(cursorToColumn(0));
  std::putchar('[');
  print(name);
  print("]$ ");
  constexpr int frameAndNextColumn = 5;
  textColumn_ = static_cast<int>(std::strlen(name)) + frameAndNextColumn;
  if (initialText != nullptr) {
    line_ = initialText;
  }
  redrawLine();
  moveCursor(2);
}

void LineEditor::reprompt() {
  showPrompt(host_.promptText().c_str(), nullptr);
}

void LineEditor::redrawLine() {
  if (batch_) {
    return;
  }
  const OutputSpan span;
  repaintOwed_ = false;
  print(cursorToColumn(textColumn_));
  print(line_);
  print(eraseToLineEnd);
}

void LineEditor::moveCursor(int how) {
  if (batch_) {
    return;
  }
  switch (how) {
    case 1:
    case 5:
      cursor_ = 0;
      break;
    case 2:
    case 6:
      cursor_ = static_cast<std::uint32_t>(line_.size());
      break;
    case 3:
      ++cursor_;
      break;
    case 4:
      cursor_ -= cursor_ > 0 ? 1 : 0;
      break;
    default:
      break;
  }
  print(cursorToColumn(textColumn_ + static_cast<int>(cursor_)));
}

void LineEditor::insertText(int code) {
  std::string text;
  for (auto rest = static_cast<std::uint32_t>(code); (rest & 0xFFU) != 0; rest >>= 8U) {
    text.push_back(static_cast<char>(rest & 0xFFU));
  }
  line_.insert(std::min<std::size_t>(cursor_, line_.size()), text);
}

void LineEditor::insertKey(int code) {
  insertText(code);
  const OutputSpan span;
  redrawLine();
  moveCursor(3);
}

void LineEditor::clearLine() {
  line_.clear();
  const OutputSpan span;
  redrawLine();
  moveCursor(1);
}

void LineEditor::killLine(bool toEnd) {
  if (toEnd) {
    line_.erase(cursor_);
  } else {
    line_.erase(0, cursor_);
  }
  const OutputSpan span;
  redrawLine();
  moveCursor(toEnd ? 6 : 5);
}

void LineEditor::browse(std::vector<std::string>& from, std::vector<std::string>& to,
                        std::uint8_t steps) {
  if (!std::exchange(browsing_, true)) {
    olderLines_ = history_;
    newerLines_.clear();
  }
  for (; steps > 0 && !from.empty(); --steps) {
    to.push_back(std::exchange(line_, from.back()));
    from.pop_back();
  }
  const OutputSpan span;
  redrawLine();
  moveCursor(2);
}

void LineEditor::historyBack(std::uint8_t steps) {
  browse(olderLines_, newerLines_, steps);
}

void LineEditor::historyForward(std::uint8_t steps) {
  browse(newerLines_, olderLines_, steps);
}

void LineEditor::replaceLastWord(const std::string& word) {
  const std::size_t last = line_.find_last_of("/ ");
  if (last == std::string::npos) {
    return;
  }
  line_.erase(last + 1).append(word);
  const OutputSpan span;
  redrawLine();
  moveCursor(2);
}

void LineEditor::flushRepaint() {
  if (repaintOwed_) {
    const OutputSpan span;
    redrawLine();
    moveCursor(0);
  }
}

void LineEditor::repaint() {
  try {
    const OutputSpan span;
    const std::uint32_t kept = cursor_;
    reprompt();
    cursor_ = kept;
    moveCursor(0);
  } catch (const std::exception&) {
    // No memory for the prompt's text: the line alone is shown.
    redrawLine();
    moveCursor(0);
  }
}

}  // namespace treescope
