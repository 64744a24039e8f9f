#include "tools/display/cell_text.h"

#include <cwchar>

namespace treectl {

namespace {

/// A character of a text, as a terminal shows it.
struct Character {
  std::string_view bytes;
  std::size_t columns;
};

/// Marks that change the direction of the text around them, or cannot be seen.
bool isHidden(wchar_t character) {
  return (character >= 0x200B && character <= 0x200F) ||
         (character >= 0x2028 && character <= 0x202E) ||
         (character >= 0x2060 && character <= 0x206F) || character == 0xFEFF;
}

/// Removes the first character from `text`, which is not empty.
Character takeCharacter(std::string_view& text) {
  std::mbstate_t state{};
  wchar_t character = 0;
  const std::size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
  constexpr auto longest = std::size_t{16};
  const bool isValid = length > 0 && length <= longest && length <= text.size();
  const int columns = isValid && !isHidden(character) ? ::wcwidth(character) : -1;
  if (columns < 0) {
    text.remove_prefix(isValid ? length : 1);
    return {"?", 1};
  }
  const Character result{text.substr(0, length), static_cast<std::size_t>(columns)};
  text.remove_prefix(length);
  return result;
}

}  // namespace

std::size_t columnsOf(std::string_view text) {
  std::size_t columns = 0;
  while (!text.empty()) {
    columns += takeCharacter(text).columns;
  }
  return columns;
}

void appendCut(ScreenLine& line, std::string_view text, std::size_t columns, const Style& style) {
  // The text and the column after the last character before which the mark fits.
  std::size_t cutSize = line.text.size();
  std::size_t used = 0;
  std::size_t cutColumns = 0;
  while (!text.empty()) {
    const Character next = takeCharacter(text);
    if (used + next.columns > columns) {
      line.text.resize(cutSize);
      if (columns > 0) {
        line.text += style.utf8 ? "…" : "~";
        ++cutColumns;
      }
      used = cutColumns;
      break;
    }
    line.text += next.bytes;
    used += next.columns;
    if (used < columns) {
      cutSize = line.text.size();
      cutColumns = used;
    }
  }
  line.columns += used;
}

void appendPadded(ScreenLine& line, std::string_view text, std::size_t columns,
                  const Style& style) {
  const std::size_t end = line.columns + columns;
  appendCut(line, text, columns, style);
  if (line.columns < end) {
    line.text.append(end - line.columns, ' ');
    line.columns = end;
  }
}

void appendPlainCells(ScreenLine& line, std::string_view text, std::size_t columns) {
  line.text += text;
  line.columns += columns;
}

void appendLook(ScreenLine& line, std::string_view look, const Style& style) {
  if (style.colored) {
    line.text += "\x1B[";
    line.text += look;
    line.text += 'm';
  }
}

void endLook(ScreenLine& line, const Style& style) {
  appendLook(line, "0", style);
}

}  // namespace treectl
