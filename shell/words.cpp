#include "shell/words.h"

#include <algorithm>
#include <string_view>

namespace treescope {

namespace {

// A closing quote is kept: existing command files rely on it.
void removeOpeningQuote(std::string& text) {
  trimLeft(text);
  if (!text.starts_with('"')) {
    return;
  }
  text.erase(0, text.rfind('"', 1) == 0 ? 1 : std::string::npos);
}

}  // namespace

void trimLeft(std::string& s) {
  s.erase(0, s.find_first_not_of(' '));
}

void trimRight(std::string& s) {
  s.erase(s.find_last_not_of(' ') + 1);
}

void splitAtSeparator(const char* text, std::vector<std::string>& out, char separator) {
  std::string_view rest = text;
  for (std::size_t end = rest.find(separator); end != std::string_view::npos;
       end = rest.find(separator)) {
    if (end > 0) {
      out.emplace_back(rest.substr(0, end));
    }
    rest.remove_prefix(end + 1);
  }
  out.emplace_back(rest);
}

void splitWords(const char* command, std::vector<std::string>& words) {
  std::string_view rest = command;
  rest = rest.substr(0, rest.find_last_not_of(' ') + 1);
  while (!rest.empty()) {
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    const std::size_t closingQuote =
        rest.front() == '"' ? rest.find('"', 1) : std::string_view::npos;
    if (closingQuote != std::string_view::npos) {
      words.emplace_back(rest.substr(1, closingQuote - 1));
      rest.remove_prefix(closingQuote + 1);
      continue;
    }
    const std::size_t end = std::min(rest.find(' '), rest.size());
    words.emplace_back(rest.substr(0, end));
    rest.remove_prefix(end);
  }
}

std::vector<std::string> scriptCommands(const char* text, bool unquote) {
  std::string line = text;
  if (unquote) {
    removeOpeningQuote(line);
  }
  trimRight(line);
  std::vector<std::string> commands;
  std::size_t begin = line.find_first_not_of(' ');
  while (begin != std::string::npos) {
    const std::size_t end = line.find(';', begin);
    commands.push_back(line.substr(begin, end - begin));
    begin = end == std::string::npos ? end : line.find_first_not_of(' ', end + 1);
  }
  return commands;
}

}  // namespace treescope
