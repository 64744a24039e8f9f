// What a watch knows of nodes, and of the names that addresses do not have.

#include <algorithm>
#include <utility>

#include "tools/time_text.h"
#include "tools/watched_tree.h"

namespace treectl {

namespace {

/// The printed address of the node above.
std::string parentAddress(const std::string& address) {
  std::size_t at = address.rfind('/');
  // A "/" of a name has a backslash before it, and a backslash of a name has another one.
  const auto backslashes = [&](std::size_t end) {
    std::size_t count = 0;
    while (count < end && address[end - 1 - count] == '\\') {
      ++count;
    }
    return count;
  };
  while (at != std::string::npos && at > 0 && backslashes(at) % 2 != 0) {
    at = address.rfind('/', at - 1);
  }
  return address.substr(0, std::min(at, address.size()));
}

}  // namespace

/// Finds the names of the top, and of the nodes above it, that its address does not have.
void WatchedTree::findNames(WatchedPart& top) {
  WatchedPart part;
  part.chain = top.chain;
  part.address = top.address;  // An index at its end does not matter above it.
  while (!part.chain.empty()) {
    Children children;
    if (connection_.readChildren(parentOf(part.chain), children) != ModelSrv::ModelRes_Success) {
      return;
    }
    const auto at = std::find(children.ids.begin(), children.ids.end(), part.chain.back());
    if (at != children.ids.end()) {
      const auto position = static_cast<std::size_t>(at - children.ids.begin());
      part.name = children.names[position];
      part.isNamed =
          !part.name.empty() && std::find(children.names.begin(), children.names.end(), part.name) -
                                        children.names.begin() ==
                                    static_cast<std::ptrdiff_t>(position);
      if (part.chain.size() == top.chain.size()) {
        top.name = part.name;
        top.isNamed = part.isNamed;
      } else if (!part.isNamed) {
        above_.insert(above_.begin(), part);
      }
    }
    part.address = parentAddress(part.address);
    part.chain.pop_back();
  }
}

bool WatchedTree::isOfStructure(const Entry& entry) const {
  return entry.isNode ? isWhole_ || !entry.part.isNamed : entry.matches;
}

void WatchedTree::reportStructure(Change::Event event, const Entry& entry) {
  if (!needs_.structure || !isComplete_ || !isOfStructure(entry)) {
    return;
  }
  Change change;
  change.event = event;
  change.address = entry.part.address;
  change.time = microsecondsNow();
  if (event == Change::Event::added) {
    change.ids = entry.part.chain;
    change.name = entry.part.isNamed ? "" : entry.part.name;
  }
  changes_->push_back(std::move(change));
}

/// Removes what has not been reported again.
void WatchedTree::eraseStale() {
  for (const auto& [chain, entry] : entries_) {
    const auto parent = entry.isStale ? entries_.find(parentOf(chain)) : entries_.end();
    if (parent != entries_.end() && !parent->second.isStale) {
      reportStructure(Change::Event::removed, entry);
    }
  }
  std::erase_if(entries_, [](const auto& item) { return item.second.isStale; });
}

void WatchedTree::forEachNode(const std::function<void(const WatchedPart&)>& visit) const {
  std::vector<const WatchedPart*> nodes;
  for (const WatchedPart& part : above_) {
    nodes.push_back(&part);
  }
  for (const auto& [chain, entry] : entries_) {
    if (entry.isNode && isOfStructure(entry)) {
      nodes.push_back(&entry.part);
    }
  }
  std::sort(nodes.begin(), nodes.end(), [](const WatchedPart* one, const WatchedPart* other) {
    return one->chain < other->chain;
  });
  for (const WatchedPart* node : nodes) {
    visit(*node);
  }
}

}  // namespace treectl
