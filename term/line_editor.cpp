#include "term/line_editor.h"

#include <cstdio>
#include <utility>

#include "utilsrv/thread.h"

namespace treescope {

LineEditor::LineEditor(int owner, bool batch, LineEditorHost host)
    : owner_(owner), batch_(batch), host_(std::move(host)) {
  if (!batch_) {
    reader_ = std::make_unique<UtilSrv::Thread>(&LineEditor::readLines, this, nullptr);
  }
}

LineEditor::~LineEditor() {
  if (!gateOpen_) {
    running_ = false;
    openGate();
  }
}

void LineEditor::openGate() {
  gateOpen_ = true;
  gateOpen_.notify_all();
  if (reader_ != nullptr && !reader_->started() && running_) {
    host_.endOfInput();
  }
}

void LineEditor::showPrompt(const char* name, const char* initialText) {
  if (batch_) {
    return;
  }
  if (initialText != nullptr) {
    line_ = initialText;
  }
  std::printf("[%s]$ %s", name, line_.c_str());
}

int LineEditor::readLines(void* editor) {
  LineEditor& self = *static_cast<LineEditor*>(editor);
  self.waitAtGate();
  self.takeLines();
  return 0;
}

void LineEditor::waitAtGate() {
  gateOpen_.wait(false);
}

void LineEditor::takeLines() {
  while (running_) {
    if (!readLine()) {
      std::putchar('\n');
      host_.endOfInput();
      return;
    }
    if (!acceptLine()) {
      return;
    }
    if (running_) {
      showPrompt(host_.promptText().c_str(), nullptr);
    }
  }
}

// A zero byte is no text and is left out; a last line without its line feed is a
// line.
bool LineEditor::readLine() {
  std::fflush(stdout);
  line_.clear();
  int byte = std::getc(stdin);
  if (byte == EOF) {
    return false;
  }
  while (byte != EOF && byte != '\n') {
    if (byte != 0) {
      line_.push_back(static_cast<char>(byte));
    }
    byte = std::getc(stdin);
  }
  return true;
}

bool LineEditor::acceptLine() {
  const std::string line = std::exchange(line_, {});
  if (line.empty()) {
    return true;
  }
  history_.push_back(line);
  return host_.runLine(line.c_str());
}

}  // namespace treescope
