#include "shell/words.h"

#include <algorithm>
#include <string_view>

namespace treescope {

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

}  // namespace treescope
