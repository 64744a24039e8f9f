#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <vector>

#include "term/line_editor.h"
#include "tests/support/captured_output.h"
#include "tests/support/editor_echo.h"

// What the tests of the line editor share.

namespace treescope {

/// What an editor with the prompt "[here]$ " prints.
inline const test_support::EditorEcho echo("here");

/// A shell that records what a line editor calls, with the prompt "[here]$ ". The line
/// "bye" ends it. To be read after the editor is destroyed, or on the thread that passes
/// keys to it.
struct FakeShell {
  LineEditorHost host() {
    return {.promptText = [] { return std::string("here"); },
            .runLine =
                [this](const char* line) {
                  lines.emplace_back(line);
                  return lines.back() != "bye";
                },
            .endOfInput = [this] { ended = true; },
            .rangeError = [this] { ++rangeErrors; },
            .outOfMemory = [this] { ++timesOutOfMemory; }};
  }

  std::vector<std::string> lines;
  std::atomic<bool> ended{false};
  int rangeErrors = 0;
  int timesOutOfMemory = 0;
};

/// A line editor with the prompt "[here]$ " whose keys come from the test; its own
/// thread never starts reading.
class EditorFixture {
 public:
  EditorFixture() : editor(0, false, shell.host()) { start("", 0); }

  /// Shows `line` with the cursor at `cursor`, which may be past its end.
  void start(const std::string& line, std::size_t cursor) {
    outputOf([&] {
      editor.showPrompt("here", line.c_str());
      editor.moveCursor(LineEditor::start);
      for (std::size_t moved = 0; moved < cursor; ++moved) {
        editor.moveCursor(LineEditor::right);
      }
    });
  }

  /// What the keys of `text` print, one key per byte.
  std::string type(const std::string& text) {
    return outputOf([&] {
      for (const char byte : text) {
        editor.handleKey(static_cast<unsigned char>(byte));
      }
    });
  }

  /// What one key prints.
  std::string press(int code) {
    return outputOf([&] { editor.handleKey(code); });
  }

  template <typename Steps>
  static std::string outputOf(const Steps& steps) {
    test_support::CapturedOutput output;
    steps();
    return output.take();
  }

  const test_support::EditorEcho echo{"here"};
  FakeShell shell;
  LineEditor editor;
};

}  // namespace treescope
