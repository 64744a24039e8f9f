#pragma once

#include <string>

#include "term/line_editor.h"
#include "tests/support/captured_output.h"
#include "tests/support/editor_echo.h"
#include "tests/term/fake_shell.h"

namespace treescope {

/// A line editor under the prompt "[here]$ " that is handed its keys by a test; its
/// own thread never gets beyond the lock.
class EditorFixture {
 public:
  EditorFixture() : editor(0, false, shell.host()) { start("", 0); }

  /// Shows `line` with the cursor at `cursor`, which may be past its end.
  void start(const std::string& line, std::size_t cursor) {
    outputOf([&] {
      editor.showPrompt("here", line.c_str());
      editor.moveCursor(1);
      for (std::size_t place = 0; place < cursor; ++place) {
        editor.moveCursor(3);
      }
    });
  }

  /// What the keys of `text` print, a byte a key.
  std::string type(const std::string& text) {
    return outputOf([&] {
      for (const char byte : text) {
        editor.handleKey(static_cast<unsigned char>(byte));
      }
    });
  }

  /// What the one key prints.
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
