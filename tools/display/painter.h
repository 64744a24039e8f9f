#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/display/cell_text.h"

namespace treectl {

/// Turns one picture on a terminal into the next without flicker: what a picture needs is one piece
/// of bytes, which replaces only the lines that differ and clears nothing that stays.
class Painter {
 public:
  /// Appends what makes `lines`, at most `size.rows` of them, the picture.
  void paint(std::string& out, const std::vector<ScreenLine>& lines, Size size);

  /// The terminal shows something else: the next picture is painted whole.
  void forget() { isKnown_ = false; }

 private:
  std::vector<ScreenLine> shown_;
  Size size_;
  bool isKnown_ = false;
};

}  // namespace treectl
