#include "servers/replayed_tree.h"

#include <cstddef>
#include <utility>

#include "modelsrv/part_description.h"
#include "servers/recorded_part.h"

namespace modelsrvd {

using ModelSrv::ModelNode;
using ModelSrv::ModelPart;
using ModelSrv::ModelPartIndex_All;
using ModelSrv::ModelRes;
using ModelSrv::ModelRes_Success;

ReplayedTree::ReplayedTree(ModelNode& top, const RecordingHeader& header, bool isOfOneServer)
    : top_(top), header_(header), isOfOneServer_(isOfOneServer) {}

ReplayedTree::~ReplayedTree() {
  // If there is no memory for that, the parts remove themselves.
  static_cast<void>(top_.setChildren({}));
}

std::set<std::string> ReplayedTree::servers() const {
  std::set<std::string> names;
  for (const auto& [name, item] : servers_) {
    names.insert(name);
  }
  return names;
}

ModelNode& ReplayedTree::nodeOf(Item& item) const {
  return item.part != nullptr ? static_cast<ModelNode&>(*item.part) : top_;
}

/// The address with the server's name in front.
Result<RecordedAddress> ReplayedTree::parse(const std::string& text) const {
  auto result = parseRecordedAddress(text);
  if (auto* address = std::get_if<RecordedAddress>(&result)) {
    if (!header_.server.empty()) {
      address->names.insert(address->names.begin(), RecordedName{header_.server, {}});
    }
    constexpr std::size_t maxLevels = 4096;
    if (address->names.empty() || address->names.size() > maxLevels) {
      return Error{"expected 1 to " + std::to_string(maxLevels) + " names in the address"};
    }
  }
  return result;
}

ReplayedTree::Item& ReplayedTree::serverItem(const std::string& name) {
  std::unique_ptr<Item>& item = servers_[name];
  if (item == nullptr) {
    item = std::make_unique<Item>();
    item->name = name;
    if (!isOfOneServer_) {
      item->id = static_cast<ModelSrv::ModelPartId>(servers_.size());
      item->part = std::make_unique<ModelNode>(item->id, name);
      // There are no two servers of a name, and a recording is of few.
      static_cast<void>(top_.add(item->part.get()));
    }
  }
  return *item;
}

Result<ReplayedTree::Item*> ReplayedTree::childItem(Item& parent, const RecordedName& name,
                                                    ModelSrv::ModelPartId recordedId,
                                                    const std::string& recordedName) {
  const auto found = parent.children.find(name);
  if (found != parent.children.end()) {
    return found->second.get();
  }
  std::size_t id = name.id.value_or(recordedId);
  if (id > ModelSrv::ModelPartId_Max ||
      parent.ids.count(static_cast<ModelSrv::ModelPartId>(id)) != 0) {
    // It appeared later, or another child had its id before.
    id = parent.ids.empty() ? 1 : *parent.ids.rbegin() + std::size_t{1};
  }
  if (id > ModelSrv::ModelPartId_Max) {
    for (id = 0; parent.ids.count(static_cast<ModelSrv::ModelPartId>(id)) != 0; ++id) {
    }
    if (id > ModelSrv::ModelPartId_Max) {
      return Error{"a node has too many children"};
    }
  }
  auto item = std::make_unique<Item>();
  item->name = name.name;
  if (name.id && !recordedName.empty()) {
    const auto named = parseRecordedAddress(recordedName);
    const auto* address = std::get_if<RecordedAddress>(&named);
    if (address == nullptr || address->names.size() != 1) {
      return Error{"expected a name, got \"" + oneLine(recordedName) + '"'};
    }
    item->name = address->names.front().name;
  }
  item->id = static_cast<ModelSrv::ModelPartId>(id);
  parent.ids.insert(item->id);
  return parent.children.emplace(name, std::move(item)).first->second.get();
}

/// Puts `part` in the place of what `item` has in the tree.
std::optional<Error> ReplayedTree::replace(Item& parent, Item& item,
                                           std::unique_ptr<ModelPart> part) {
  hasChanged_ = true;
  if (item.part != nullptr) {
    // Whatever was below is gone, too.
    targets_.clear();
    item.part.reset();
    item.children.clear();
    item.ids.clear();
  }
  item.part = std::move(part);
  return errorOf(nodeOf(parent).add(item.part.get()));
}

std::optional<Error> ReplayedTree::provideNode(Item& parent, Item& item) {
  if (item.part != nullptr && item.shape.type == EntryType::node) {
    return std::nullopt;
  }
  item.shape = {};
  item.shape.type = EntryType::node;
  return replace(parent, item, std::make_unique<ModelNode>(item.id, item.name));
}

const RecordedPart* ReplayedTree::descriptionOf(const std::string& address) const {
  const auto found = described_.find(address);
  return found == described_.end() ? nullptr : found->second;
}

std::optional<Error> ReplayedTree::providePart(Item& parent, Item& item, const RecordedPart& part) {
  if (item.part != nullptr && item.shape.type != EntryType::node &&
      haveSameShape(item.shape, part)) {
    return std::nullopt;
  }
  const RecordedPart* const described = descriptionOf(part.address);
  item.shape = described != nullptr && haveSameShape(*described, part) ? *described : part;
  auto created = createPart(item.id, item.name, item.shape);
  created->setSubscribable(item.shape.subscribable);
  const ModelRes result =
      created->setAttributes({item.shape.unit, item.shape.minimum, item.shape.maximum,
                              item.shape.text, item.shape.choices});
  if (result != ModelRes_Success) {
    return Error{std::string("unit, limits, choices or text: ") + ModelSrv::describe(result)};
  }
  return replace(parent, item, std::move(created));
}

/// Makes sure that the part is in the tree, and sets `target` to it. `part.elements` is that of the
/// part if its address has an element.
std::optional<Error> ReplayedTree::provide(const RecordedAddress& address, const RecordedPart& part,
                                           Target& target) {
  target.server = &serverItem(address.names.front().name);
  if (auto error = restore(*target.server)) {
    return error;
  }
  const bool isNode = part.type == EntryType::node;
  if (address.names.size() == 1 && !isNode) {
    return Error{"expected the address of a part"};
  }
  Item* item = target.server;
  for (std::size_t i = 1; i < address.names.size(); ++i) {
    Item* const parent = item;
    const bool hasIds = part.ids.size() + 1 == address.names.size();
    const bool isLast = i + 1 == address.names.size();
    auto child =
        childItem(*parent, address.names[i], hasIds ? part.ids[i - 1] : ModelSrv::ModelPartId_Void,
                  isLast ? part.name : std::string());
    if (auto* error = std::get_if<Error>(&child)) {
      return std::move(*error);
    }
    item = std::get<Item*>(child);
    if (!isLast || isNode) {
      if (auto error = provideNode(*parent, *item)) {
        return error;
      }
      continue;
    }
    RecordedPart wanted = part;
    if (address.element && part.elements == 0) {
      const bool isThere = item->part != nullptr && item->shape.type != EntryType::node;
      const RecordedPart* const described = descriptionOf(part.address);
      wanted.elements = isThere                ? item->shape.elements
                        : described != nullptr ? described->elements
                                               : 0;
    }
    if (auto error = providePart(*parent, *item, wanted)) {
      return error;
    }
  }
  target.item = item;
  target.index = ModelPartIndex_All;
  if (address.element && !isNode) {
    const auto index = indexOf(*address.element, item->shape);
    if (!index) {
      return Error{"no element \"" + oneLine(*address.element) + '"'};
    }
    target.index = *index;
  }
  return std::nullopt;
}

std::optional<Error> ReplayedTree::begin() {
  for (const auto& [name, server] : servers_) {
    if (auto error = restore(*server)) {
      return error;
    }
  }
  if (!hasChanged_) {
    return std::nullopt;
  }
  targets_.clear();
  static_cast<void>(top_.setChildren({}));
  servers_.clear();
  for (const std::vector<RecordedPart>* list : {&header_.nodes, &header_.parts}) {
    for (const RecordedPart& part : *list) {
      if (list == &header_.parts) {
        described_[part.address] = &part;
      }
      if (const auto error = provideOf(part)) {
        return Error{oneLine(part.address) + ": " + error->text};
      }
    }
  }
  hasChanged_ = false;
  return std::nullopt;
}

std::optional<Error> ReplayedTree::provideOf(const RecordedPart& part) {
  const auto parsed = parse(part.address);
  Target target;
  const auto* const address = std::get_if<RecordedAddress>(&parsed);
  return address != nullptr ? provide(*address, part, target) : std::get<Error>(parsed);
}

std::optional<Error> ReplayedTree::find(const RecordedChange& change, Target& target) {
  const auto found = targets_.find(change.part.address);
  if (found != targets_.end()) {
    const RecordedPart& shape = found->second.item->shape;
    const bool fits = found->second.index != ModelPartIndex_All
                          ? !change.isArray
                          : shape.elements == (change.isArray ? change.texts.size() : 0);
    if (fits && shape.type == change.part.type && shape.access == change.part.access) {
      target = found->second;
      return restore(*target.server);
    }
  }
  auto parsed = parse(change.part.address);
  if (auto* error = std::get_if<Error>(&parsed)) {
    return std::move(*error);
  }
  const auto& address = std::get<RecordedAddress>(parsed);
  RecordedPart part = change.part;
  part.elements = change.isArray ? change.texts.size() : 0;
  if (change.isArray && (address.element || part.elements > ModelSrv::ModelPartElements_Max)) {
    return Error{"too many values"};
  }
  if (auto error = provide(address, part, target)) {
    return error;
  }
  targets_[change.part.address] = target;
  return std::nullopt;
}

std::optional<Error> ReplayedTree::apply(const RecordedChange& change) {
  using Event = RecordedChange::Event;
  if (change.event == Event::added || change.event == Event::removed) {
    auto failed =
        change.event == Event::added ? provideOf(change.part) : remove(change.part.address);
    if (failed) {
      failed->text = oneLine(change.part.address) + ": " + failed->text;
    }
    return failed;
  }
  if (change.event != Event::value) {
    return setLost(change.part.address, change.event == Event::lost);
  }
  Target target;
  auto error = find(change, target);
  if (!error) {
    Item& item = *target.item;
    if (item.shape.unit != change.part.unit) {
      hasChanged_ = true;
      item.shape.unit = change.part.unit;
      auto attributes = item.part->attributes();
      attributes.unit = change.part.unit;
      error = errorOf(item.part->setAttributes(std::move(attributes)));
    }
    auto ofValue = setTexts(*item.part, item.shape, target.index, change.texts);
    error = error ? std::move(error) : std::move(ofValue);
  }
  if (error) {
    error->text = oneLine(change.part.address) + ": " + error->text;
  }
  return error;
}

/// Removes what is there; nothing may be.
std::optional<Error> ReplayedTree::remove(const std::string& address) {
  const auto parsed = parse(address);
  const auto* const found = std::get_if<RecordedAddress>(&parsed);
  if (found == nullptr) {
    return std::get<Error>(parsed);
  }
  const auto server = servers_.find(found->names.front().name);
  if (server == servers_.end()) {
    return std::nullopt;
  }
  if (auto error = restore(*server->second)) {
    return error;
  }
  Item* parent = nullptr;
  Item* item = server->second.get();
  for (std::size_t i = 1; i < found->names.size(); ++i) {
    parent = item;
    const auto child = parent->children.find(found->names[i]);
    if (child == parent->children.end()) {
      return std::nullopt;
    }
    item = child->second.get();
  }
  if (parent != nullptr) {
    hasChanged_ = true;
    targets_.clear();
    parent->ids.erase(item->id);
    parent->children.erase(found->names.back());
  }
  return std::nullopt;
}

/// The address is as the user typed it. Only a server's loss can be told without wildcards.
std::optional<Error> ReplayedTree::setLost(const std::string& address, bool isLost) {
  const auto parsed = parse(address);
  const auto* names = std::get_if<RecordedAddress>(&parsed);
  const auto found = names == nullptr ? servers_.end() : servers_.find(names->names.front().name);
  if (found == servers_.end()) {
    return std::nullopt;
  }
  Item& server = *found->second;
  if (!isLost) {
    return restore(server);
  }
  if (!server.lost) {
    server.lost = nodeOf(server).children();
    return errorOf(nodeOf(server).setChildren({}));
  }
  return std::nullopt;
}

std::optional<Error> ReplayedTree::restore(Item& server) {
  return server.lost
             ? errorOf(nodeOf(server).setChildren(*std::exchange(server.lost, std::nullopt)))
             : std::nullopt;
}

}  // namespace modelsrvd
