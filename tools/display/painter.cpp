#include "tools/display/painter.h"

#include <algorithm>

namespace treectl {

void Painter::paint(std::string& out, const std::vector<ScreenLine>& lines, Size size) {
  isKnown_ = isKnown_ && size == size_;
  size_ = size;
  const std::size_t count = std::min(lines.size(), size.rows);
  for (std::size_t row = 0; row < size.rows; ++row) {
    const ScreenLine line = row < count ? lines[row] : ScreenLine{};
    const bool isShown = isKnown_ && line == (row < shown_.size() ? shown_[row] : ScreenLine{});
    if (isShown) {
      continue;
    }
    out += "\x1B[" + std::to_string(row + 1) + ";1H";
    out += line.text;
    // After a full line the cursor stays on the last character, which would be erased.
    if (line.columns < size.columns) {
      out += "\x1B[K";
    }
  }
  shown_.assign(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(count));
  isKnown_ = true;
}

}  // namespace treectl
