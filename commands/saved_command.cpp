#include "commands/saved_command.h"

#include "shell/paths.h"

namespace treescope {

std::string savedCommand(const std::string& value) {
  if (value.empty() || value.find(' ') != std::string::npos) {
    return "str \"" + value + "\" ";
  }
  return "set " + value + ' ';
}

std::string savedPath(const std::vector<std::string>& names) {
  return joinPath(names);
}

std::string savedElementPath(const std::vector<std::string>& names, std::uint16_t element) {
  if (names.empty()) {
    return {};
  }
  return joinPath(names) + '[' + std::to_string(element) + ']';
}

}  // namespace treescope
