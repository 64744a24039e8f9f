#include "commands/saved_command.h"

#include "shell/paths.h"

namespace treescope {

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
