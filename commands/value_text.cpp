#include "commands/value_text.h"

#include <algorithm>

#include "shell/paths.h"
#include "term/shown_text.h"

namespace treescope {

namespace {

/// Whether `c` would end a command in a command file, or is one of the bytes 1 to 31 and 127. The
/// bytes of C1 controls (128 to 159) stay: in UTF-8 they are parts of letters as well.
bool becomesSpace(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7F || c == ';';
}

void replaceBySpaces(std::string& line, std::size_t begin) {
  std::replace_if(line.begin() + static_cast<std::ptrdiff_t>(begin), line.end(), becomesSpace, ' ');
}

}  // namespace

std::string valueLine(std::vector<std::string> names, const std::string& indexText,
                      const std::string& value) {
  constexpr std::size_t columnStep = 4;
  if (!indexText.empty() && !names.empty()) {
    names.back() += '[' + indexText + ']';
  }
  std::string line = shownText(pathText(names));
  line.append(columnStep - line.size() % columnStep, ' ');
  line += '[';
  appendShown(line, std::string_view(value).substr(0, value.find('\0')));
  line += ']';
  std::replace(line.begin(), line.end(), '\n', ' ');
  return line;
}

void appendSavedCommand(std::string& line, const std::string& value) {
  const auto isSpace = [](char c) { return c == ' ' || becomesSpace(c); };
  const bool quoted = value.empty() || std::any_of(value.begin(), value.end(), isSpace);
  line += quoted ? "str \"" : "set ";
  const std::size_t begin = line.size();
  line += value;
  replaceBySpaces(line, begin);
  line += quoted ? "\" " : " ";
}

void appendSavedPath(std::string& line, const std::vector<std::string>& names) {
  const std::size_t begin = line.size();
  appendPath(line, names);
  replaceBySpaces(line, begin);
}

void appendSavedElementPath(std::string& line, const std::vector<std::string>& names,
                            std::uint16_t element) {
  if (!names.empty()) {
    appendSavedPath(line, names);
    line += '[' + std::to_string(element) + ']';
  }
}

}  // namespace treescope
