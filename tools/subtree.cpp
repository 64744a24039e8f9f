#include "tools/subtree.h"

#include <algorithm>
#include <utility>

namespace treectl {

SubtreeBuilder::SubtreeBuilder(Subtree& subtree, std::size_t startDepth)
    : subtree_(subtree), startDepth_(startDepth) {
  subtree_.entries.clear();
}

void SubtreeBuilder::add(const ModelSrv::TreePart& part) {
  const std::size_t depth = part.chain.size() - std::min(part.chain.size(), startDepth_);
  const std::size_t position = subtree_.entries.size();
  if (depth > path_.size() || (depth == 0 && position > 0)) {
    return;  // Without its node, it has no place.
  }
  path_.resize(depth);
  SubtreeEntry& entry = subtree_.entries.emplace_back();
  if (depth > 0) {
    entry.parent = path_.back();
    subtree_.entries[path_.back()].children.push_back(position);
  }
  path_.push_back(position);
  entry.id = part.chain.empty() ? ModelSrv::ModelPartId{0} : part.chain.back();
  entry.name = part.name;
  entry.isNode = part.isNode || part.result == ModelSrv::ModelRes_NoValue;
  entry.type = part.type;
  entry.access = part.access;
  entry.elements = part.elements;
  entry.result = part.result;
  entry.text = part.text;
}

Chain SubtreeBuilder::chainOf(std::size_t entry) const {
  Chain chain;
  for (; entry != 0; entry = subtree_.entries[entry].parent) {
    chain.push_back(idOf(entry));
  }
  std::reverse(chain.begin(), chain.end());
  return chain;
}

bool SubtreeBuilder::canSort(std::size_t entry) const {
  const std::vector<std::size_t>& children = subtree_.entries[entry].children;
  // An older server reports them in its own order.
  return children.size() > 1 && std::is_sorted(children.begin(), children.end(),
                                               [this](std::size_t one, std::size_t other) {
                                                 return idOf(one) < idOf(other);
                                               });
}

void SubtreeBuilder::sortChildren(std::size_t entry,
                                  const std::vector<ModelSrv::ModelPartId>& ids) {
  std::vector<std::size_t>& children = subtree_.entries[entry].children;
  std::vector<std::size_t> sorted;
  sorted.reserve(children.size());
  for (const ModelSrv::ModelPartId id : ids) {
    const auto at = std::lower_bound(
        children.begin(), children.end(), id,
        [this](std::size_t child, ModelSrv::ModelPartId wanted) { return idOf(child) < wanted; });
    if (at != children.end() && idOf(*at) == id) {
      sorted.push_back(*at);
    }
  }
  children = std::move(sorted);
}

SubtreeWalk::SubtreeWalk(const Subtree& subtree, Chain chain, std::string address)
    : subtree_(subtree),
      chain_(std::move(chain)),
      address_(std::move(address)),
      startDepth_(chain_.size()) {
  if (!subtree_.entries.empty()) {
    enter(0);
  }
}

void SubtreeWalk::enter(std::size_t entry) {
  Children children;
  for (const std::size_t child : subtree_.entries[entry].children) {
    children.ids.push_back(subtree_.entries[child].id);
    children.names.push_back(subtree_.entries[child].name);
  }
  ChildLabels labels(children);
  levels_.push_back({entry, address_.size(), std::move(children), std::move(labels)});
}

bool SubtreeWalk::next() {
  if (at_ != 0 && !entry().children.empty()) {
    enter(at_);
  }
  while (!levels_.empty() && levels_.back().next == levels_.back().children.ids.size()) {
    levels_.pop_back();
  }
  if (levels_.empty()) {
    return false;
  }
  Level& level = levels_.back();
  chain_.resize(startDepth_ + levels_.size() - 1);
  address_.resize(level.addressSize);
  at_ = subtree_.entries[level.entry].children[level.next];
  chain_.push_back(entry().id);
  address_ += '/';
  level.labels.append(address_, level.children, level.next++);
  return true;
}

ModelSrv::ModelRes SubtreeWalk::readValue(Connection& connection, Value& value) const {
  const SubtreeEntry& part = entry();
  if (part.result == ModelSrv::ModelRes_Success) {
    if (part.elements == 0) {
      value = {{part.text}, false};
      return part.result;
    }
    if (splitElements(part.text, part.elements, value)) {
      return part.result;
    }
  }
  // A text of an array has line feeds of its own; or the server could not read the value.
  return connection.readValue(chain_, ModelSrv::ModelPartIndex_All, value);
}

}  // namespace treectl
