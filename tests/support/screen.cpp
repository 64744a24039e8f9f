#include "tests/support/screen.h"

#include <vterm.h>

#include <algorithm>
#include <array>
#include <new>
#include <ostream>

namespace test_support {
namespace {

void appendUtf8(std::string& text, std::uint32_t code) {
  const auto put = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
  if (code < 0x80) {
    put(code);
  } else if (code < 0x800) {
    put(0xc0 | (code >> 6));
    put(0x80 | (code & 0x3f));
  } else if (code < 0x10000) {
    put(0xe0 | (code >> 12));
    put(0x80 | ((code >> 6) & 0x3f));
    put(0x80 | (code & 0x3f));
  } else {
    put(0xf0 | (code >> 18));
    put(0x80 | ((code >> 12) & 0x3f));
    put(0x80 | ((code >> 6) & 0x3f));
    put(0x80 | (code & 0x3f));
  }
}

void trimEnd(std::string& text) {
  text.erase(text.find_last_not_of(' ') + 1);
}

Colour colourOf(const VTermColor& colour) {
  if (VTERM_COLOR_IS_DEFAULT_FG(&colour)) {
    return Colour::standard;
  }
  if (!VTERM_COLOR_IS_INDEXED(&colour)) {
    return Colour::other;
  }
  switch (colour.indexed.idx) {
    case 1:
      return Colour::red;
    case 2:
      return Colour::green;
    case 4:
      return Colour::blue;
    case 7:
      return Colour::white;
    default:
      return Colour::other;
  }
}

/// The 16 colours of a terminal, readable on a dark background.
constexpr std::array<std::uint32_t, 16> palette{
    0x3b4252, 0xe06c75, 0x98c379, 0xe5c07b, 0x61afef, 0xc678dd, 0x56b6c2, 0xd8dee9,
    0x6b7280, 0xff7b86, 0xb5e890, 0xffd68a, 0x82c4ff, 0xe29bf5, 0x76d9e6, 0xffffff};

std::uint32_t rgbOf(const VTermScreen* screen, VTermColor colour) {
  if (VTERM_COLOR_IS_INDEXED(&colour) && colour.indexed.idx < palette.size()) {
    return palette[colour.indexed.idx];
  }
  vterm_screen_convert_color_to_rgb(screen, &colour);
  return static_cast<std::uint32_t>(colour.rgb.red << 16 | colour.rgb.green << 8 | colour.rgb.blue);
}

const char* nameOf(Colour colour) {
  switch (colour) {
    case Colour::standard:
      return "standard";
    case Colour::white:
      return "white";
    case Colour::red:
      return "red";
    case Colour::green:
      return "green";
    case Colour::blue:
      return "blue";
    case Colour::other:
      return "other";
  }
  return "";
}

}  // namespace

void PrintTo(const Look& look, std::ostream* out) {
  *out << (look.bold ? "bold " : "") << (look.underline ? "underlined " : "")
       << (look.blink ? "blinking " : "") << (look.reverse ? "reverse " : "")
       << nameOf(look.colour);
}

Screen::Screen(int rows, int columns)
    : terminal_(vterm_new(std::max(rows, 1), std::max(columns, 1))), screen_(nullptr) {
  if (terminal_ == nullptr) {
    throw std::bad_alloc();
  }
  vterm_set_utf8(terminal_, 1);
  screen_ = vterm_obtain_screen(terminal_);
  vterm_screen_enable_altscreen(screen_, 1);
  vterm_screen_reset(screen_, 1);
}

Screen::~Screen() {
  vterm_free(terminal_);
}

void Screen::write(std::string_view bytes) {
  vterm_input_write(terminal_, bytes.data(), bytes.size());
}

void Screen::resize(int rows, int columns) {
  vterm_set_size(terminal_, rows, columns);
}

int Screen::rows() const {
  int rows = 0;
  int columns = 0;
  vterm_get_size(terminal_, &rows, &columns);
  return rows;
}

int Screen::columns() const {
  int rows = 0;
  int columns = 0;
  vterm_get_size(terminal_, &rows, &columns);
  return columns;
}

Position Screen::cursor() const {
  VTermPos position{};
  vterm_state_get_cursorpos(vterm_obtain_state(terminal_), &position);
  return {position.row, position.col};
}

std::string Screen::cells(int row, int from, int to) const {
  std::string text;
  for (int column = from; column < to; ++column) {
    VTermScreenCell cell{};
    vterm_screen_get_cell(screen_, {row, column}, &cell);
    if (cell.chars[0] == 0) {
      text += ' ';
    } else if (cell.chars[0] == static_cast<std::uint32_t>(-1)) {
      continue;  // The right half of a wide character.
    }
    for (int i = 0; i < VTERM_MAX_CHARS_PER_CELL && cell.chars[i] != 0; ++i) {
      appendUtf8(text, cell.chars[i]);
    }
  }
  return text;
}

std::string Screen::row(int index) const {
  std::string text = cells(index, 0, columns());
  trimEnd(text);
  return text;
}

std::string Screen::text() const {
  std::string text;
  for (int index = 0; index < rows(); ++index) {
    text += row(index) + '\n';
  }
  const std::size_t last = text.find_last_not_of('\n');
  text.erase(last == std::string::npos ? 0 : last + 2);
  return text;
}

std::string Screen::cursorLine() const {
  const Position at = cursor();
  std::string right = cells(at.row, at.column, columns());
  trimEnd(right);
  return cells(at.row, 0, at.column) + '|' + right;
}

std::optional<Position> Screen::find(std::string_view text) const {
  for (int index = 0; index < rows(); ++index) {
    const std::size_t at = row(index).find(text);
    if (at != std::string::npos) {
      return Position{index, static_cast<int>(at)};
    }
  }
  return std::nullopt;
}

int Screen::rowsWith(std::string_view text) const {
  int count = 0;
  for (int index = 0; index < rows(); ++index) {
    count += row(index).find(text) != std::string::npos ? 1 : 0;
  }
  return count;
}

Look Screen::look(Position position) const {
  VTermScreenCell cell{};
  vterm_screen_get_cell(screen_, {position.row, position.column}, &cell);
  return {cell.attrs.bold != 0, cell.attrs.underline != 0, cell.attrs.blink != 0,
          cell.attrs.reverse != 0, colourOf(cell.fg)};
}

Cell Screen::cell(Position position) const {
  VTermScreenCell read{};
  vterm_screen_get_cell(screen_, {position.row, position.column}, &read);
  Cell cell;
  cell.columns = static_cast<unsigned char>(read.width);
  cell.bold = read.attrs.bold != 0;
  cell.underline = read.attrs.underline != 0;
  cell.reverse = read.attrs.reverse != 0;
  if (!VTERM_COLOR_IS_DEFAULT_FG(&read.fg)) {
    cell.foreground = rgbOf(screen_, read.fg);
  }
  if (!VTERM_COLOR_IS_DEFAULT_BG(&read.bg)) {
    cell.background = rgbOf(screen_, read.bg);
  }
  if (read.chars[0] == static_cast<std::uint32_t>(-1)) {
    cell.columns = 0;
    return cell;
  }
  for (int i = 0; i < VTERM_MAX_CHARS_PER_CELL && read.chars[i] != 0; ++i) {
    appendUtf8(cell.text, read.chars[i]);
  }
  return cell;
}

int Screen::usedRows() const {
  int used = 0;
  for (int index = 0; index < rows(); ++index) {
    used = row(index).empty() ? used : index + 1;
  }
  return used;
}

std::optional<Look> Screen::lookOf(std::string_view text) const {
  const std::optional<Position> start = find(text);
  if (!start) {
    return std::nullopt;
  }
  const Look first = look(*start);
  for (int i = 1; i < static_cast<int>(text.size()); ++i) {
    if (look({start->row, start->column + i}) != first) {
      return std::nullopt;
    }
  }
  return first;
}

std::string Screen::picture() const {
  const int used = std::max(usedRows(), cursor().row + 1);
  const std::string edge = '+' + std::string(static_cast<std::size_t>(columns()), '-') + "+\n";
  std::string picture = edge;
  for (int index = 0; index < used; ++index) {
    picture += '|' + cells(index, 0, columns()) + "|\n";
  }
  const Position at = cursor();
  picture += edge + "cursor in row " + std::to_string(at.row) + " of " + std::to_string(rows()) +
             ": " + cursorLine() + '\n';
  return picture;
}

}  // namespace test_support
