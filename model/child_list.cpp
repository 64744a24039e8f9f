#include "model/child_list.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "model/id_chain.h"

namespace treescope {

namespace {

template <typename Items, typename Test>
std::optional<std::size_t> firstPosition(const Items& items, Test test) {
  const auto found = std::find_if(items.begin(), items.end(), test);
  if (found == items.end()) {
    return std::nullopt;
  }
  return static_cast<std::size_t>(found - items.begin());
}

}  // namespace

ChildList::ChildList(std::vector<std::uint16_t> ids, std::vector<std::string> names)
    : ids_(std::move(ids)), names_(std::move(names)) {
  names_.resize(ids_.size());
}

const std::string& ChildList::servedName(std::size_t position) const {
  return names_[position];
}

std::string ChildList::name(std::size_t position) const {
  return childName(names_[position], ids_[position]);
}

std::optional<std::size_t> ChildList::findName(const std::string& name) const {
  for (std::size_t position = 0; position < ids_.size(); ++position) {
    const std::string& served = names_[position];
    if (served.empty() ? childName(served, ids_[position]) == name : served == name) {
      return position;
    }
  }
  return std::nullopt;
}

std::optional<std::size_t> ChildList::findComponent(const std::string& component) const {
  if (component.starts_with(unnamedChildPrefix)) {
    std::istringstream tail(component.substr(unnamedChildPrefix.size()));
    long long number = 0;
    if (!(tail >> number)) {
      return std::nullopt;
    }
    return firstPosition(ids_, [number](std::uint16_t id) { return id == number; });
  }
  return firstPosition(names_, [&](const std::string& served) { return served == component; });
}

std::optional<std::size_t> ChildList::findId(std::uint16_t id) const {
  return firstPosition(ids_, [id](std::uint16_t candidate) { return candidate == id; });
}

}  // namespace treescope
