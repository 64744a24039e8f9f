#include "shell/paths.h"

#include <algorithm>

namespace treescope {

void followPath(std::string_view path, std::vector<std::string>& place) {
  while (!path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string_view head = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    if (head.empty()) {
      place.clear();
    } else if (head != "..") {
      place.emplace_back(head);
    } else if (!place.empty()) {
      place.pop_back();
    }
  }
}

void resolvePath(std::string& path, std::vector<std::string> base) {
  followPath(path, base);
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
