#include "gateway/exporter/path_rules.h"

#include <algorithm>

namespace modelgate {

namespace {

std::vector<std::string> levelsOf(std::string_view rule) {
  std::vector<std::string> levels;
  while (!rule.empty()) {
    rule.remove_prefix(1);
    const std::string_view level = rule.substr(0, rule.find('/'));
    rule.remove_prefix(level.size());
    if (!level.empty()) {
      levels.emplace_back(level);
    }
  }
  return levels;
}

}  // namespace

bool isPathRule(std::string_view text) {
  const auto isControl = [](char byte) {
    return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F;
  };
  return text.starts_with('/') && text.find("//") == std::string_view::npos &&
         std::none_of(text.begin(), text.end(), isControl);
}

PathRules::PathRules(std::span<const std::string> rules) {
  for (const std::string& rule : rules) {
    rules_.push_back(levelsOf(rule));
  }
}

bool PathRules::allow(std::string_view server, std::span<const std::string_view> names) const {
  const auto beginWith = [&](std::span<const std::string> levels) {
    return levels.size() <= names.size() && std::equal(levels.begin(), levels.end(), names.begin());
  };
  return std::any_of(rules_.begin(), rules_.end(), [&](const std::vector<std::string>& levels) {
    return beginWith(levels) ||
           (levels.front() == server && beginWith(std::span(levels).subspan(1)));
  });
}

}  // namespace modelgate
