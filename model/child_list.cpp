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

ChildList::ChildList() : ChildList({}, {}) {}

ChildList::ChildList(std::vector<std::uint16_t> ids, std::vector<std::string> names) {
  names.resize(ids.size());
  lists_ = std::make_shared<const Lists>(Lists{std::move(ids), std::move(names)});
}

const std::string& ChildList::servedName(std::size_t position) const {
  return lists_->names[position];
}

std::string ChildList::name(std::size_t position) const {
  return childName(lists_->names[position], id(position));
}

std::optional<std::size_t> ChildList::findName(const std::string& name) const {
  for (std::size_t position = 0; position < size(); ++position) {
    const std::string& served = lists_->names[position];
    if (served.empty() ? childName(served, id(position)) == name : served == name) {
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
    return firstPosition(lists_->ids, [number](std::uint16_t id) { return id == number; });
  }
  return firstPosition(lists_->names,
                       [&](const std::string& served) { return served == component; });
}

std::optional<std::size_t> ChildList::findId(std::uint16_t id) const {
  return firstPosition(lists_->ids, [id](std::uint16_t candidate) { return candidate == id; });
}

}  // namespace treescope
