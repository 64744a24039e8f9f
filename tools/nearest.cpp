#include "tools/nearest.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

#include "tools/name_pattern.h"

namespace treectl {

namespace {

/// How many bytes to insert, remove or replace to make `to` of `from`.
std::size_t editDistance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  for (std::size_t j = 0; j <= to.size(); ++j) {
    row[j] = j;
  }
  for (std::size_t i = 1; i <= from.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= to.size(); ++j) {
      const std::size_t replaced = diagonal + (from[i - 1] == to[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row[to.size()];
}

}  // namespace

std::string nearestName(const std::string& wanted, const std::vector<std::string>& names) {
  constexpr std::size_t longest = 100;  // of the names that are compared
  std::size_t best = std::max<std::size_t>(2, wanted.size() / 2) + 1;
  const std::string* nearest = nullptr;
  for (const std::string& name : names) {
    if (name.empty() || name.size() > longest || wanted.size() > longest) {
      continue;
    }
    const std::size_t distance = editDistance(wanted, name);
    if (distance < best && distance < std::max(wanted.size(), name.size())) {
      best = distance;
      nearest = &name;
    }
  }
  std::string escaped;
  if (nearest != nullptr) {
    appendEscapedName(escaped, *nearest);
  }
  return escaped;
}

std::string otherServers(const std::string& wanted, std::vector<std::string> names) {
  constexpr std::size_t most = 8;
  std::erase(names, wanted);
  if (names.empty()) {
    return "there is none";
  }
  std::size_t more = 0;
  if (names.size() > most) {
    std::vector<std::pair<std::size_t, std::string>> byDistance;
    byDistance.reserve(names.size());
    for (std::string& name : names) {
      const std::size_t distance = editDistance(wanted, name);
      byDistance.emplace_back(distance, std::move(name));
    }
    std::sort(byDistance.begin(), byDistance.end());
    more = names.size() - most;
    names.resize(most);
    for (std::size_t i = 0; i < most; ++i) {
      names[i] = std::move(byDistance[i].second);
    }
  }
  std::string text = "there are: ";
  for (std::size_t i = 0; i < names.size(); ++i) {
    text += i == 0 ? "" : ", ";
    text += names[i];
  }
  if (more > 0) {
    text += ", and " + std::to_string(more) + " more";
  }
  return text;
}

}  // namespace treectl
