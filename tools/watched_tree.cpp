#include "tools/watched_tree.h"

#include <algorithm>
#include <utility>

#include "tools/time_text.h"
#include "tools/tree_walk.h"

namespace treectl {

using ModelSrv::ModelPartIndex_All;
using ModelSrv::ModelRes;
using ModelSrv::WatchEvent;

ModelRes WatchedTree::startPart(const Match& match) {
  Entry& entry = entries_[match.chain];
  entry.part.chain = match.chain;
  entry.part.index = match.index;
  entry.part.address = match.address;
  entry.part.elementName = match.elementName;
  entry.matches = true;
  ModelSrv::WatchOptions options;
  options.index = match.index;
  return start(match.chain, options);
}

ModelRes WatchedTree::startBelow(const Match& match, std::vector<NamePattern> names) {
  names_ = std::move(names);
  isWhole_ = names_.size() == 1 && names_.front().isAnyDepth();
  Entry& entry = entries_[match.chain];
  entry.part.chain = match.chain;
  entry.part.address = match.address;
  entry.isNode = true;
  entry.positions = withSkippedNames(names_, {0});
  ModelSrv::WatchOptions options;
  options.subtree = true;
  return start(match.chain, options);
}

ModelRes WatchedTree::start(const Chain& chain, const ModelSrv::WatchOptions& options) {
  base_ = chain;
  if (needs_.structure) {
    findNames(entries_[chain].part);
  }
  return connection_.start(watch_, chain, options,
                           [this](const WatchEvent& event) { handle(event); });
}

void WatchedTree::handle(const WatchEvent& event) {
  switch (event.kind) {
    case WatchEvent::Kind::begin:
      isRenewing_ = isComplete_;
      for (auto& [chain, entry] : entries_) {
        entry.isStale = chain != base_;
        entry.names.clear();
      }
      break;
    case WatchEvent::Kind::added:
      add(event);
      break;
    case WatchEvent::Kind::value:
      reportValue(event);
      break;
    case WatchEvent::Kind::removed:
      remove(Chain(event.chain.begin(), event.chain.end()));
      break;
    case WatchEvent::Kind::complete:
      complete();
      break;
  }
}

void WatchedTree::add(const WatchEvent& event) {
  Chain chain(event.chain.begin(), event.chain.end());
  if (chain.size() <= base_.size()) {
    return;  // The part that the watch is of.
  }
  const auto parent = entries_.find(Chain(chain.begin(), chain.end() - 1));
  if (parent == entries_.end()) {
    return;  // Nothing below that node can match.
  }
  const std::string name(event.name);
  const ModelSrv::ModelPartId id = chain.back();
  const bool isNamed =
      !name.empty() && parent->second.names.try_emplace(name, id).first->second == id;
  std::vector<std::size_t> positions =
      matchChild(names_, parent->second.positions, {name, chain.back(), isNamed});
  if (positions.empty()) {
    return;
  }
  std::string address = parent->second.part.address + '/';
  if (isNamed) {
    appendEscapedName(address, name);
  } else {
    address += '#' + std::to_string(chain.back());
  }
  isOrdered_ = false;
  Entry& entry = entries_[chain];
  const bool isOther = entry.isStale && (entry.part.name != name || entry.isNode != event.isNode);
  if (isOther) {
    reportStructure(Change::Event::removed, entry);
    entry = {};
  }
  const bool isNew = entry.part.chain.empty();
  entry.isStale = false;
  entry.isNode = event.isNode;
  entry.matches = !event.isNode &&
                  std::find(positions.begin(), positions.end(), names_.size()) != positions.end();
  entry.positions = std::move(positions);
  entry.part.name = name;
  entry.part.isNamed = isNamed;
  entry.part.address = std::move(address);
  entry.part.chain = std::move(chain);
  if (isNew) {
    entry.isNew = isComplete_;
    if (entry.isNode) {
      reportStructure(Change::Event::added, entry);
    }
  }
}

void WatchedTree::remove(const Chain& chain) {
  const auto gone = entries_.find(chain);
  if (gone == entries_.end()) {
    return;
  }
  reportStructure(Change::Event::removed, gone->second);
  isOrdered_ = false;
  if (chain == base_) {
    removeTop(gone->second);
    return;
  }
  if (const auto parent = entries_.find(parentOf(chain)); parent != entries_.end()) {
    auto& names = parent->second.names;
    if (const auto named = names.find(gone->second.part.name);
        named != names.end() && named->second == chain.back()) {
      names.erase(named);
    }
  }
  std::erase_if(entries_, [&](const auto& item) {
    return item.first.size() >= chain.size() &&
           std::equal(chain.begin(), chain.end(), item.first.begin());
  });
}

/// The watch goes on, and the top may return.
void WatchedTree::removeTop(Entry& top) {
  top.names.clear();
  top.part.isOutdated = true;
  if (needs_.structure) {
    top.isNew = true;
    top.part.value.reset();
  }
  std::erase_if(entries_, [&](const auto& item) { return item.first.size() > base_.size(); });
}

void WatchedTree::reportValue(const WatchEvent& event) {
  key_.assign(event.chain.begin(), event.chain.end());
  const auto found = entries_.find(key_);
  if (found == entries_.end() || !found->second.matches) {
    return;
  }
  if (event.result == ModelSrv::ModelRes_Success) {
    report(found->second, event, event.text);
    return;
  }
  found->second.part.isOutdated = true;
  std::string text;
  if (event.result == ModelSrv::ModelRes_TooLarge &&
      watch_.fetch(event, text) == ModelSrv::ModelRes_Success) {
    report(found->second, event, text);
    return;
  }
  reportMissing(found->second.part, event);
}

void WatchedTree::reportMissing(WatchedPart& part, const WatchEvent& event) {
  if (!part.value || (event.index != ModelPartIndex_All && event.index != part.index)) {
    return;
  }
  part.value.reset();
  Change change;
  change.event = Change::Event::noValue;
  change.address = part.address;
  change.time = event.timeNs / 1000;
  changes_->push_back(std::move(change));
}

void WatchedTree::report(Entry& entry, const WatchEvent& event, std::string_view text) {
  WatchedPart& part = entry.part;
  Change change;
  change.time = event.timeNs / 1000;
  change.changes = event.changes;
  change.isFirst = event.changes == 0 && !isComplete_;
  if (needs_.typed) {
    describe(part);
    change.description = part.description;
  }
  const bool isWhole = event.index == ModelPartIndex_All || event.index == part.index;
  if (isWhole ? !takeWhole(part, event, text, change) : !takeElement(part, event, text, change)) {
    return;
  }
  part.time = change.time;
  if (entry.isNew && needs_.structure) {
    change.ids = part.chain;
    change.name = part.isNamed ? "" : part.name;
  }
  entry.isNew = false;
  changes_->push_back(std::move(change));
}

bool WatchedTree::takeWhole(WatchedPart& part, const WatchEvent& event, std::string_view text,
                            Change& change) {
  const unsigned elements = part.index == ModelPartIndex_All ? elementsOf(part, text) : 0;
  if (elements == 0) {
    change.value = {{std::string(text)}, false};
  } else if (!splitElements(text, elements, change.value) &&
             connection_.readValue(part.chain, part.index, change.value) !=
                 ModelSrv::ModelRes_Success) {
    return false;
  }
  // After a reconnection the values come again.
  part.isOutdated = false;
  change.isRepeated = event.changes == 0 && part.value && part.value->texts == change.value.texts;
  if (change.isRepeated && !needs_.repeats) {
    return false;
  }
  part.value = change.value;
  change.address = part.address;
  change.elementName = part.elementName;
  return true;
}

bool WatchedTree::takeElement(WatchedPart& part, const WatchEvent& event, std::string_view text,
                              Change& change) {
  describe(part);
  change.index = event.index;
  change.address = part.address + '[' + std::to_string(event.index) + ']';
  if (event.index < part.description->elementNames.size()) {
    change.elementName = part.description->elementNames[event.index];
  }
  change.value = {{std::string(text)}, false};
  if (part.value && event.index < part.value->texts.size()) {
    part.value->texts[event.index] = text;
  }
  return true;
}

void WatchedTree::describe(WatchedPart& part) {
  if (!part.description) {
    const auto description = std::make_shared<ModelSrv::PartDescription>();
    // Without it, as with a server that does not know descriptions, the value is text.
    static_cast<void>(connection_.readDescription(part.chain, *description));
    part.description = description;
  }
}

unsigned WatchedTree::elementsOf(WatchedPart& part, std::string_view text) {
  // Nothing but a line feed makes a difference in plain output.
  if (!needs_.typed && text.find('\n') == std::string_view::npos) {
    return 0;
  }
  describe(part);
  return part.description->elements;
}

void WatchedTree::setLost(bool isLost) {
  for (auto& [chain, entry] : entries_) {
    entry.part.isLost = isLost;
    entry.part.isOutdated = entry.part.isOutdated || isLost;
  }
  isRenewing_ = isRenewing_ && !isLost;
}

void WatchedTree::complete() {
  isOrdered_ = false;
  eraseStale();
  for (auto& [chain, entry] : entries_) {
    std::string text;
    if (entry.matches && (!entry.part.value || entry.part.isOutdated) &&
        connection_.readText(chain, entry.part.index, text) == ModelSrv::ModelRes_Success) {
      WatchEvent event;
      event.timeNs = microsecondsNow() * 1000;
      report(entry, event, text);
    }
  }
  isComplete_ = true;
  isRenewing_ = false;
}

void WatchedTree::forEachPart(const std::function<void(const WatchedPart&)>& visit) {
  if (!isOrdered_) {
    ordered_.clear();
    for (const auto& [chain, entry] : entries_) {
      if (entry.matches) {
        ordered_.push_back(&entry.part);
      }
    }
    std::sort(
        ordered_.begin(), ordered_.end(),
        [](const WatchedPart* one, const WatchedPart* other) { return one->chain < other->chain; });
    isOrdered_ = true;
  }
  for (const WatchedPart* part : ordered_) {
    visit(*part);
  }
}

}  // namespace treectl
