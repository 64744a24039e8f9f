#include "tools/tree_walk.h"

#include <algorithm>
#include <string_view>
#include <unordered_set>
#include <utility>

namespace treectl {

ChildLabels::ChildLabels(const Children& children) {
  std::unordered_set<std::string_view> seen;
  named_.reserve(children.names.size());
  for (const std::string& name : children.names) {
    named_.push_back(!name.empty() && seen.insert(name).second);
  }
}

void ChildLabels::append(std::string& out, const Children& children, std::size_t position) const {
  if (named_[position]) {
    appendEscapedName(out, children.names[position]);
  } else {
    out += '#';
    out += std::to_string(children.ids[position]);
  }
}

std::optional<std::size_t> findChild(const Children& children, const NamePattern& name) {
  const auto positionOf = [](const auto& list, const auto& value) -> std::optional<std::size_t> {
    const auto found = std::find(list.begin(), list.end(), value);
    if (found == list.end()) {
      return std::nullopt;
    }
    return static_cast<std::size_t>(found - list.begin());
  };
  if (name.childId()) {
    return positionOf(children.ids, *name.childId());
  }
  // An empty name would stand for the first of all children that have none.
  return name.bytes().empty() ? std::nullopt : positionOf(children.names, name.bytes());
}

TreeWalk::TreeWalk(Connection& connection, Chain start, std::string address,
                   const std::vector<NamePattern>& names)
    : connection_(connection),
      names_(names),
      chain_(std::move(start)),
      address_(std::move(address)),
      startDepth_(chain_.size()) {}

std::vector<std::size_t> withSkippedNames(const std::vector<NamePattern>& names,
                                          std::vector<std::size_t> positions) {
  for (std::size_t i = 0; i < positions.size(); ++i) {
    const std::size_t after = positions[i] + 1;
    if (positions[i] < names.size() && names[positions[i]].isAnyDepth() &&
        std::find(positions.begin(), positions.end(), after) == positions.end()) {
      positions.push_back(after);
    }
  }
  return positions;
}

std::vector<std::size_t> matchChild(const std::vector<NamePattern>& names,
                                    const std::vector<std::size_t>& positions,
                                    const ChildName& child) {
  std::vector<std::size_t> left;
  for (const std::size_t position : positions) {
    if (position == names.size()) {
      continue;
    }
    const NamePattern& name = names[position];
    const bool isMatch = name.hasWildcards() ? name.matches(child.name)
                         : name.childId()    ? *name.childId() == child.id
                                             : child.isNamed && name.bytes() == child.name;
    if (name.isAnyDepth()) {
      left.push_back(position);
    } else if (isMatch) {
      left.push_back(position + 1);
    }
  }
  return withSkippedNames(names, std::move(left));
}

void TreeWalk::setPending(Positions positions) {
  pending_ = withSkippedNames(names_, std::move(positions));
}

bool TreeWalk::isMatch() const {
  return std::find(pending_.begin(), pending_.end(), names_.size()) != pending_.end();
}

bool TreeWalk::descend() {
  // If only the end of the names is left, nothing below can match.
  const bool canMatchBelow = pending_.size() > (isMatch() ? 1U : 0U);
  if (!canMatchBelow) {
    pending_.clear();
    return true;
  }
  Level level;
  level.positions = std::move(pending_);
  pending_.clear();
  level.addressSize = address_.size();
  result_ = connection_.readChildren(chain_, level.children);
  if (result_ != ModelSrv::ModelRes_Success) {
    return false;
  }
  for (const std::size_t position : level.positions) {
    const bool isLiteral = position < names_.size() && !names_[position].hasWildcards();
    level.found.push_back(isLiteral ? findChild(level.children, names_[position]) : std::nullopt);
  }
  levels_.push_back(std::move(level));
  return true;
}

bool TreeWalk::leaveFinishedLevels() {
  while (!levels_.empty() && levels_.back().next == levels_.back().children.ids.size()) {
    levels_.pop_back();
  }
  if (levels_.empty()) {
    return false;
  }
  chain_.resize(startDepth_ + levels_.size() - 1);
  address_.resize(levels_.back().addressSize);
  return true;
}

TreeWalk::Positions TreeWalk::step(const Level& level, std::size_t child) const {
  Positions left;
  for (std::size_t i = 0; i < level.positions.size(); ++i) {
    const std::size_t position = level.positions[i];
    if (position == names_.size()) {
      continue;
    }
    const NamePattern& name = names_[position];
    if (name.isAnyDepth()) {
      left.push_back(position);
    } else if (name.hasWildcards() ? name.matches(level.children.names[child])
                                   : level.found[i] == child) {
      left.push_back(position + 1);
    }
  }
  return left;
}

void TreeWalk::appendLabel(Level& level, std::size_t child) {
  const std::string& name = level.children.names[child];
  // One search costs less than the labels of all children.
  const bool isLiteral = level.positions.size() == 1 && level.found.front().has_value();
  if (!isLiteral) {
    if (!level.labels) {
      level.labels.emplace(level.children);
    }
    level.labels->append(address_, level.children, child);
  } else if (!name.empty() &&
             std::find(level.children.names.begin(), level.children.names.end(), name) -
                     level.children.names.begin() ==
                 static_cast<std::ptrdiff_t>(child)) {
    appendEscapedName(address_, name);
  } else {
    address_ += '#';
    address_ += std::to_string(level.children.ids[child]);
  }
}

bool TreeWalk::visitChild() {
  Level& level = levels_.back();
  const std::size_t child = level.next++;
  Positions left = step(level, child);
  if (left.empty()) {
    return false;
  }
  chain_.push_back(level.children.ids[child]);
  address_ += '/';
  appendLabel(level, child);
  setPending(std::move(left));
  return true;
}

bool TreeWalk::next() {
  if (!hasBegun_) {
    hasBegun_ = true;
    setPending({0});
    if (isMatch()) {
      return true;
    }
  }
  while (result_ == ModelSrv::ModelRes_Success && descend() && leaveFinishedLevels()) {
    if (visitChild() && isMatch()) {
      return true;
    }
  }
  return false;
}

}  // namespace treectl
