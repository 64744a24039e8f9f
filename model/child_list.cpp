#include "model/child_list.h"

#include <algorithm>
#include <limits>
#include <sstream>
#include <utility>

#include "model/id_chain.h"

namespace treescope {

ChildList::ChildList() : ChildList({}, {}) {}

ChildList::ChildList(std::vector<std::uint16_t> ids, std::vector<std::string> names,
                     ChildSearch search) {
  names.resize(ids.size());
  Lists lists{std::move(ids), std::move(names)};
  if (search == ChildSearch::frequent) {
    lists.sort();
  }
  lists_ = std::make_shared<const Lists>(std::move(lists));
}

void ChildList::Lists::sort() {
  byId = SortedPositions(
      ids.size(), [this](std::size_t left, std::size_t right) { return ids[left] < ids[right]; });
  byName = SortedPositions(ids.size(), [this](std::size_t left, std::size_t right) {
    const std::string& served = names[right];
    return (served.empty() ? compareName(left, childName(served, ids[right]))
                           : compareName(left, served)) < 0;
  });
  sorted = true;
}

int ChildList::Lists::compareName(std::size_t position, std::string_view wanted) const {
  const std::string& served = names[position];
  return served.empty() ? childName(served, ids[position]).compare(wanted) : served.compare(wanted);
}

std::size_t ChildList::memory() const {
  const std::size_t positions = lists_->sorted ? 2 * sizeof(std::uint32_t) : 0;
  std::size_t bytes = size() * (sizeof(std::uint16_t) + sizeof(std::string) + positions);
  for (const std::string& name : lists_->names) {
    bytes += name.size();
  }
  return bytes;
}

const std::string& ChildList::servedName(std::size_t position) const {
  return lists_->names[position];
}

std::string ChildList::name(std::size_t position) const {
  return childName(lists_->names[position], id(position));
}

std::optional<std::size_t> ChildList::findName(const std::string& name) const {
  const Lists& lists = *lists_;
  const auto compare = [&](std::size_t position) { return lists.compareName(position, name); };
  if (lists.sorted) {
    return lists.byName.findFirst(compare);
  }
  for (std::size_t position = 0; position < size(); ++position) {
    if (compare(position) == 0) {
      return position;
    }
  }
  return std::nullopt;
}

std::optional<std::size_t> ChildList::findComponent(const std::string& component) const {
  if (!component.starts_with(unnamedChildPrefix)) {
    // Unnamed children are displayed with that prefix.
    return findName(component);
  }
  std::istringstream digits(component.substr(unnamedChildPrefix.size()));
  long long number = 0;
  if (!(digits >> number) || number < 0 || number > std::numeric_limits<std::uint16_t>::max()) {
    return std::nullopt;
  }
  return findId(static_cast<std::uint16_t>(number));
}

std::optional<std::size_t> ChildList::findId(std::uint16_t id) const {
  const Lists& lists = *lists_;
  if (lists.sorted) {
    return lists.byId.findFirst(
        [&](std::size_t position) { return int{lists.ids[position]} - int{id}; });
  }
  const auto found = std::find(lists.ids.begin(), lists.ids.end(), id);
  return found == lists.ids.end()
             ? std::nullopt
             : std::optional(static_cast<std::size_t>(found - lists.ids.begin()));
}

}  // namespace treescope
