#include "shell/paths.h"

#include <algorithm>

namespace treescope {

void appendComponent(std::string& text, std::string_view component) {
  text += '/';
  text += component;
}

void appendPath(std::string& text, const std::vector<std::string>& components) {
  for (const std::string& component : components) {
    appendComponent(text, component);
  }
}

std::string pathText(const std::vector<std::string>& components) {
  if (components.empty()) {
    return "/";
  }
  std::string text;
  appendPath(text, components);
  return text;
}

void followPath(std::string_view typed, std::vector<std::string>& path) {
  while (!typed.empty()) {
    const std::size_t end = std::min(typed.find('/'), typed.size());
    const std::string_view head = typed.substr(0, end);
    typed.remove_prefix(std::min(end + 1, typed.size()));
    if (head.empty()) {
      path.clear();
    } else if (head != "..") {
      path.emplace_back(head);
    } else if (!path.empty()) {
      path.pop_back();
    }
  }
}

void resolvePath(std::string& path, std::vector<std::string> base) {
  followPath(path, base);
  path.clear();
  appendPath(path, base);
}

}  // namespace treescope
