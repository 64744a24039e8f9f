#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "term/line_editor.h"

namespace treescope {

/// A shell that notes what a line editor asks of it, under the prompt "[here]$ ".
/// The line "bye" ends it. Its notes are read when the editor is gone, or on the
/// thread that hands the editor its keys.
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

}  // namespace treescope
