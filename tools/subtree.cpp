#include "tools/subtree.h"

#include <algorithm>
#include <utility>

namespace treectl {

std::string_view Subtree::Texts::add(std::string_view text) {
  constexpr std::size_t blockSize = std::size_t{32} * 1024;
  if (text.size() > left_) {
    const std::size_t size = std::max(blockSize, text.size());
    blocks_.push_back(std::make_unique_for_overwrite<char[]>(size));
    next_ = blocks_.back().get();
    left_ = size;
  }
  char* const begin = next_;
  next_ = std::copy(text.begin(), text.end(), begin);
  left_ -= text.size();
  return {begin, text.size()};
}

SubtreeBuilder::SubtreeBuilder(Subtree& subtree, std::size_t startDepth)
    : subtree_(subtree), startDepth_(startDepth) {
  subtree_ = {};
}

void SubtreeBuilder::add(const ModelSrv::TreePart& part) {
  const std::size_t depth = part.chain.size() - std::min(part.chain.size(), startDepth_);
  const auto position = static_cast<std::uint32_t>(subtree_.entries.size());
  if (depth > path_.size() || (depth == 0 && position > 0)) {
    return;  // Without its node, it has no place.
  }
  path_.resize(depth);
  last_.resize(depth);
  SubtreeEntry& entry = subtree_.entries.emplace_back();
  if (depth > 0) {
    entry.parent = path_.back();
    std::uint32_t& last = last_.back();
    (last == SubtreeEntry::none ? subtree_.entries[entry.parent].firstChild
                                : subtree_.entries[last].nextSibling) = position;
    last = position;
  }
  path_.push_back(position);
  last_.push_back(SubtreeEntry::none);
  if (part.type != lastType_) {
    lastType_ = *subtree_.types.emplace(part.type).first;
  }
  entry.type = lastType_;
  entry.name = subtree_.texts.add(part.name);
  entry.text = subtree_.texts.add(part.text);
  entry.id = part.chain.empty() ? ModelSrv::ModelPartId{0} : part.chain.back();
  entry.elements = static_cast<std::uint16_t>(part.elements);
  entry.access = part.access;
  entry.result = part.result;
  entry.childrenSorted = part.childrenSorted;
  // A server that does not say what a part is describes a part without a value like a node.
  entry.isNode = part.isNode || (part.type.empty() && part.result == ModelSrv::ModelRes_NoValue);
}

Chain SubtreeBuilder::chainOf(std::size_t entry) const {
  Chain chain;
  for (; entry != 0; entry = subtree_.entries[entry].parent) {
    chain.push_back(subtree_.entries[entry].id);
  }
  std::reverse(chain.begin(), chain.end());
  return chain;
}

std::vector<std::uint32_t> SubtreeBuilder::childrenToSort(std::size_t entry) const {
  const std::deque<SubtreeEntry>& entries = subtree_.entries;
  std::vector<std::uint32_t> children;
  if (entries[entry].childrenSorted) {
    return children;
  }
  for (std::uint32_t child = entries[entry].firstChild; child != SubtreeEntry::none;
       child = entries[child].nextSibling) {
    // An older server reports them in its own order.
    if (!children.empty() && entries[child].id < entries[children.back()].id) {
      return {};
    }
    children.push_back(child);
  }
  if (children.size() < 2) {
    children.clear();
  }
  return children;
}

void SubtreeBuilder::sortChildren(std::size_t entry, const std::vector<std::uint32_t>& children,
                                  const std::vector<ModelSrv::ModelPartId>& ids) {
  std::deque<SubtreeEntry>& entries = subtree_.entries;
  std::uint32_t* link = &entries[entry].firstChild;
  for (std::size_t i = 0; i < ids.size(); ++i) {
    // Most servers have the order of the ids.
    auto at = children.begin() + static_cast<std::ptrdiff_t>(std::min(i, children.size() - 1));
    if (entries[*at].id != ids[i]) {
      at = std::lower_bound(children.begin(), children.end(), ids[i],
                            [&](std::uint32_t child, ModelSrv::ModelPartId wanted) {
                              return entries[child].id < wanted;
                            });
    }
    if (at != children.end() && entries[*at].id == ids[i]) {
      *link = *at;
      link = &entries[*at].nextSibling;
    }
  }
  *link = SubtreeEntry::none;
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

void SubtreeWalk::enter(std::uint32_t entry) {
  if (subtree_.entries[entry].firstChild != SubtreeEntry::none) {
    const std::uint32_t first = subtree_.entries[entry].firstChild;
    levels_.push_back({.addressSize = address_.size(), .first = first, .next = first});
  }
}

bool SubtreeWalk::isFirstOfItsName(Level& level) {
  const std::string_view name = entry().name;
  if (name.empty()) {
    return false;
  }
  if (level.isAscending && name > level.last) {
    level.last = name;
    return true;
  }
  if (level.isAscending) {
    level.isAscending = false;
    for (std::uint32_t child = level.first; child != at_;
         child = subtree_.entries[child].nextSibling) {
      level.names.insert(subtree_.entries[child].name);
    }
  }
  return level.names.insert(name).second;
}

bool SubtreeWalk::next() {
  if (at_ != 0) {
    enter(at_);
  }
  while (!levels_.empty() && levels_.back().next == SubtreeEntry::none) {
    levels_.pop_back();
  }
  if (levels_.empty()) {
    return false;
  }
  Level& level = levels_.back();
  at_ = level.next;
  level.next = entry().nextSibling;
  chain_.resize(startDepth_ + levels_.size());
  chain_.back() = entry().id;
  address_.resize(level.addressSize);
  address_ += '/';
  if (isFirstOfItsName(level)) {
    appendEscapedName(address_, entry().name);
  } else {
    address_ += '#';
    address_ += std::to_string(entry().id);
  }
  return true;
}

bool SubtreeEntry::hasValue() const {
  return !isNode && result != ModelSrv::ModelRes_NoValue;
}

bool SubtreeEntry::needsReading() const {
  return hasValue() &&
         (result != ModelSrv::ModelRes_Success ||
          (elements > 0 && std::count(text.begin(), text.end(), '\n') != elements - 1));
}

ModelSrv::ModelRes SubtreeWalk::readValue(Connection& connection, Value& value) const {
  const SubtreeEntry& part = entry();
  if (part.needsReading()) {
    return connection.readValue(chain_, ModelSrv::ModelPartIndex_All, value);
  }
  if (!part.hasValue()) {
    return ModelSrv::ModelRes_NoValue;
  }
  if (part.elements == 0) {
    value.texts.resize(1);
    value.texts.front() = part.text;
    value.isArray = false;
    return part.result;
  }
  return splitElements(part.text, part.elements, value) ? part.result : ModelSrv::ModelRes_Protocol;
}

}  // namespace treectl
