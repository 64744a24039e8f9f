/// What typed keys do to the line and to the terminal.
///
/// Input: the bytes of the keys, as a terminal sends them. A small terminal interprets
/// what the editor prints. After every key it shows the prompt and the line, and its
/// cursor is where the editor's is. Accepted lines, and no others, are in the history.
///
/// Corpus: `typing`, `arrows`, `kills`, `past_the_end`, `history`, `references`,
/// `completion`, `broken_sequences`, `errors`, `ending`.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "term/key_decoder.h"
#include "term/line_editor.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using fuzz::require;
using treescope::KeyDecoder;
using treescope::LineEditor;
using treescope::LineEditorHost;

const std::string promptName = "fuzz /";
const std::string shownPrompt = "[" + promptName + "]$ ";

/// Captures standard output as a string while it exists.
class Output {
 public:
  Output() : original_(stdout) { stdout = open_memstream(&text_, &size_); }
  ~Output() {
    std::fclose(stdout);
    stdout = original_;
    std::free(text_);
  }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  /// What was printed since the last call.
  std::string take() {
    std::fflush(stdout);
    std::string text(text_, size_);
    std::rewind(stdout);
    return text;
  }

 private:
  FILE* const original_;
  char* text_ = nullptr;
  std::size_t size_ = 0;
};

/// The row of the terminal that has the cursor; every printed byte takes one column.
class Terminal {
 public:
  void take(const std::string& bytes) {
    for (std::size_t at = 0; at < bytes.size(); ++at) {
      if (bytes[at] == '\033') {
        at = takeSequence(bytes, at);
      } else if (bytes[at] == '\n') {
        row_.clear();
        column_ = 0;
      } else {
        row_.resize(std::max(row_.size(), column_ + 1), ' ');
        row_[column_++] = bytes[at];
      }
    }
  }

  [[nodiscard]] const std::string& row() const { return row_; }
  [[nodiscard]] std::size_t column() const { return column_; }

 private:
  std::size_t takeSequence(const std::string& bytes, std::size_t at) {
    std::size_t letter = 0;
    require(bytes.compare(at, 2, "\033[") == 0, "a sequence begins with a bracket");
    const unsigned long number = std::stoul(bytes.substr(at + 2, 9), &letter);
    letter += at + 2;
    require(letter < bytes.size(), "a sequence is complete");
    if (bytes[letter] == 'G') {
      column_ = number == 0 ? 0 : number - 1;
    } else {
      require(bytes[letter] == 'K', "only the column and erasing sequences are used");
      row_.resize(number == 0 ? std::min(column_, row_.size()) : 0);
    }
    return letter;
  }

  std::string row_;
  std::size_t column_ = 0;
};

/// The shell, its commands and its completions.
class Shell {
 public:
  LineEditorHost host() {
    return {.promptText = [] { return promptName; },
            .runLine = [this](const char* line) { return run(line); },
            .endOfInput = [] { require(false, "the input never ends"); },
            .rangeError = [] { std::fputs("range\n", stdout); },
            .outOfMemory = [] { std::fputs("memory\n", stdout); }};
  }

  void attach(LineEditor& editor) { editor_ = &editor; }
  [[nodiscard]] bool hasEnded() const { return ended_; }

 private:
  bool run(const std::string& line) {
    if (line.starts_with("tab ")) {
      complete(line.substr(4));
      return true;
    }
    if (line == "full") {
      throw std::bad_alloc();
    }
    if (line == "long") {
      throw std::length_error(line);
    }
    ended_ = line == "q";
    return !ended_;
  }

  void complete(const std::string& line) {
    if (line.size() % 2 == 0) {
      editor_->showPrompt(promptName.c_str(), nullptr);
      editor_->replaceLastWord("candidate/");
    } else {
      editor_->setLine("ls ");
      editor_->showPrompt(promptName.c_str(), nullptr);
    }
  }

  LineEditor* editor_ = nullptr;
  bool ended_ = false;
};

void press(LineEditor& editor, int code) {
  const std::string line = editor.line();
  const std::size_t linesBefore = editor.history().size();
  editor.handleKey(code);
  const bool accepts = code == '\n' && !line.empty();
  const std::size_t added = editor.history().size() - linesBefore;
  require(added == 0 || (added == 1 && accepts), "only Return adds to the history");
  require(added == 1 || !accepts || line.starts_with("!-"),
          "Return adds an accepted line to the history");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t longestShown = 10'000;
  Output output;
  Terminal terminal;
  Shell shell;
  LineEditor editor(0, false, shell.host());
  shell.attach(editor);
  editor.showPrompt(promptName.c_str(), nullptr);
  KeyDecoder decoder;
  for (const std::uint8_t byte : fuzz::Input(data, size).rest()) {
    if (const std::optional<int> key = decoder.take(byte)) {
      press(editor, *key);
    }
    if (shell.hasEnded() || editor.line().size() > longestShown) {
      break;
    }
    terminal.take(output.take());
    require(terminal.row() == shownPrompt + editor.line(), "the terminal shows the line");
    require(terminal.column() == shownPrompt.size() + editor.cursor(),
            "the terminal shows the cursor");
    require(editor.line().find('\0') == std::string::npos, "the line holds no zero byte");
  }
  return 0;
}
