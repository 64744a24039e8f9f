#include "commands/value_text.h"

#include <algorithm>

#include "shell/paths.h"

namespace treescope {

std::string valueLine(std::vector<std::string> names, const std::string& indexText,
                      const std::string& value) {
  constexpr std::size_t columnStep = 4;
  if (!indexText.empty() && !names.empty()) {
    names.back() += '[' + indexText + ']';
  }
  std::string line = pathText(names);
  line.append(columnStep - line.size() % columnStep, ' ');
  line += '[' + value + ']';
  std::replace(line.begin(), line.end(), '\n', ' ');
  return line;
}

void appendSavedCommand(std::string& line, const std::string& value) {
  if (value.empty() || value.find(' ') != std::string::npos) {
    line += "str \"";
    line += value;
    line += "\" ";
  } else {
    line += "set ";
    line += value;
    line += ' ';
  }
}

void appendSavedElementPath(std::string& line, const std::vector<std::string>& names,
                            std::uint16_t element) {
  if (!names.empty()) {
    appendPath(line, names);
    line += '[' + std::to_string(element) + ']';
  }
}

}  // namespace treescope
