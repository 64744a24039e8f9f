#include "commands/value_line.h"

#include <algorithm>

#include "shell/paths.h"

namespace treescope {

namespace {

constexpr std::size_t columnStep = 4;

}  // namespace

std::string valueLine(std::vector<std::string> names, const std::string& indexText,
                      const std::string& value) {
  if (!indexText.empty() && !names.empty()) {
    names.back() += '[' + indexText + ']';
  }
  std::string line = pathText(names);
  line.append(columnStep - line.size() % columnStep, ' ');
  line += '[' + value + ']';
  std::replace(line.begin(), line.end(), '\n', ' ');
  return line;
}

}  // namespace treescope
