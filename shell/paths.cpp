#include "shell/paths.h"

#include <algorithm>
#include <string_view>

namespace treescope {

void resolvePath(std::string& path, std::vector<std::string> base) {
  std::string_view rest = path;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find('/'), rest.size());
    const std::string_view head = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (head.empty()) {
      base.clear();
    } else if (head != "..") {
      base.emplace_back(head);
    } else if (!base.empty()) {
      base.pop_back();
    }
  }
  path = joinPath(base);
}

std::string joinPath(const std::vector<std::string>& components) {
  std::string text;
  for (const std::string& component : components) {
    text += '/';
    text += component;
  }
  return text;
}

}  // namespace treescope
