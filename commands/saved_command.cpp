#include "commands/saved_command.h"

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

void appendSavedPath(std::string& line, const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    line += '/';
    line += name;
  }
}

void appendSavedElementPath(std::string& line, const std::vector<std::string>& names,
                            std::uint16_t element) {
  if (!names.empty()) {
    appendSavedPath(line, names);
    line += '[' + std::to_string(element) + ']';
  }
}

}  // namespace treescope
