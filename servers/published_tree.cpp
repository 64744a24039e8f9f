#include "servers/published_tree.h"

#include <functional>
#include <limits>
#include <type_traits>
#include <unordered_map>
#include <utility>

#include "servers/kept_ids.h"

namespace modelsrvd {

namespace {

using ModelSrv::ArrayPart;
using ModelSrv::ModelNode;
using ModelSrv::ModelPart;
using ModelSrv::ModelRes;
using ModelSrv::ValuePart;

/// No description has this many entries: the size of a file is limited.
constexpr std::uint32_t noParent = std::numeric_limits<std::uint32_t>::max();

/// Converts a value of a checked description from the widest type of its kind.
template <typename T, typename Value>
T narrow(Value&& value) {
  if constexpr (std::is_same_v<T, bool> || std::is_same_v<T, std::string>) {
    return std::get<T>(std::forward<Value>(value));
  } else if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(std::get<double>(value));
  } else if constexpr (std::is_signed_v<T>) {
    return static_cast<T>(std::get<std::int64_t>(value));
  } else {
    return static_cast<T>(std::get<std::uint64_t>(value));
  }
}

/// Converts all values; texts are moved out unless `values` is const.
template <typename T, typename Values>
std::vector<T> narrowAll(Values& values) {
  std::vector<T> narrowed;
  narrowed.reserve(values.size());
  for (auto& value : values) {
    narrowed.push_back(narrow<T>(std::move(value)));
  }
  return narrowed;
}

template <typename T>
std::unique_ptr<ModelPart> createTyped(Entry& entry) {
  if (entry.array) {
    return std::make_unique<ArrayPart<T>>(entry.id, std::move(entry.name),
                                          narrowAll<T>(entry.values), std::move(entry.elementNames),
                                          entry.access);
  }
  return std::make_unique<ValuePart<T>>(entry.id, std::move(entry.name),
                                        narrow<T>(std::move(entry.values.front())), entry.access);
}

/// `hadSource`: the value that the part holds was not the one that clients got.
template <typename T>
ModelRes setTyped(ModelPart& part, Entry& entry, bool hadSource) {
  if (entry.array) {
    return static_cast<ArrayPart<T>&>(part).setValues(narrowAll<T>(entry.values));
  }
  auto& single = static_cast<ValuePart<T>&>(part);
  T value = narrow<T>(std::move(entry.values.front()));
  if (hadSource && std::equal_to<T>()(single.value(), value)) {
    single.notifyChange();
  }
  return single.setValue(std::move(value));
}

std::uint16_t elementsOf(const Entry& entry) {
  return entry.array ? static_cast<std::uint16_t>(entry.values.size()) : std::uint16_t{0};
}

/// The error, if `result` is one, of an operation on a part.
std::optional<Error> errorOf(ModelRes result, const ModelPart& part) {
  if (result == ModelSrv::ModelRes_Success) {
    return std::nullopt;
  }
  return Error{oneLine(part.name()) + ": " + ModelSrv::describe(result)};
}

std::optional<Error> setAttributes(ModelPart& part, const Entry& entry) {
  return errorOf(part.setAttributes(entry.details != nullptr ? entry.details->attributes
                                                             : ModelSrv::PartAttributes()),
                 part);
}

/// Whether the value of the entry comes from elsewhere.
bool hasSource(const Entry& entry) {
  return entry.details != nullptr && (entry.details->file || entry.details->simulation);
}

/// Sets what may differ in a part that stays.
std::optional<Error> setKept(ModelPart& part, Entry& entry, bool hadSource,
                             const PublishedTree::KeepsValue& keepsValue) {
  auto error = setAttributes(part, entry);
  if (entry.type == EntryType::node) {
    return error;
  }
  part.setSubscribable(entry.subscribable);
  if (hasSource(entry) || (keepsValue && keepsValue(part))) {
    return error;
  }
  const ModelRes result =
      visitValueType(entry.type, [&]<typename T>() { return setTyped<T>(part, entry, hadSource); });
  return error ? error : errorOf(result, part);
}

std::uint32_t parentOf(const Entry& entry) {
  return entry.parent == rootEntry ? noParent : static_cast<std::uint32_t>(entry.parent);
}

}  // namespace

std::unique_ptr<ModelPart> PublishedTree::create(Entry& entry, std::optional<Error>& error) {
  std::unique_ptr<ModelPart> part;
  if (entry.type == EntryType::node) {
    part = std::make_unique<ModelNode>(entry.id, std::move(entry.name));
  } else {
    part = visitValueType(entry.type, [&]<typename T>() { return createTyped<T>(entry); });
  }
  error = setAttributes(*part, entry);
  if (!entry.subscribable) {
    part->setSubscribable(false);
  }
  return part;
}

/// Creates the part of `entry`, whose values and names are moved out of it.
std::optional<Error> PublishedTree::addCreated(Entry& entry, Parts& parts) {
  if (!entry.elementNames.empty()) {
    parts.elementNames.emplace(parts.created.size(), entry.elementNames);
  }
  if (hasSource(entry)) {
    parts.sources.emplace(parts.created.size(), entry.details);
  }
  const std::uint16_t elements = elementsOf(entry);
  std::optional<Error> error;
  parts.created.push_back({create(entry, error), parentOf(entry), entry.type, elements});
  return error;
}

/// Adds a part to its parent, which is a node of `parts` too.
std::optional<Error> PublishedTree::addToParent(const Parts& parts, std::size_t index) {
  const Created& created = parts.created[index];
  auto& parent = static_cast<ModelNode&>(*parts.created[created.parent].part);
  return errorOf(parent.add(created.part.get()), *created.part);
}

/// Destroys nodes before their children: a part that still has a parent searches its siblings
/// to remove itself.
void PublishedTree::destroy(std::vector<Created>& created) {
  for (Created& each : created) {
    each.part.reset();
  }
}

PublishedTree::PublishedTree(TreeDescription description) {
  parts_.created.reserve(description.entries.size());
  // Each entry is freed once its part exists, so that memory never holds both trees.
  for (; !description.entries.empty(); description.entries.pop_front()) {
    auto error = addCreated(description.entries.front(), parts_);
    const std::size_t index = parts_.created.size() - 1;
    if (!error && parts_.created[index].parent != noParent) {
      error = addToParent(parts_, index);
    }
    if (!error_) {
      error_ = std::move(error);
    }
  }
}

void PublishedTree::supply(ValueFeeds& feeds) const {
  for (const auto& [index, details] : parts_.sources) {
    const Created& created = parts_.created[index];
    feeds.add(*created.part, created.type, details);
  }
}

PublishedTree::~PublishedTree() {
  if (root_ != nullptr) {
    // If there is no memory for that, the parts remove themselves.
    static_cast<void>(root_->setChildren({}));
  }
  destroy(parts_.created);
}

std::optional<Error> PublishedTree::publish(ModelSrv::ModelRoot& root) {
  root_ = &root;
  for (const Created& created : parts_.created) {
    if (created.parent != noParent || error_) {
      continue;
    }
    error_ = errorOf(root.add(created.part.get()), *created.part);
  }
  return error_;
}

bool PublishedTree::isSame(std::size_t index, const Entry& entry) const {
  const Created& created = parts_.created[index];
  const ModelPart& part = *created.part;
  if (created.type != entry.type || created.elements != elementsOf(entry) ||
      part.name() != entry.name) {
    return false;
  }
  if (entry.type == EntryType::node) {
    return true;
  }
  const auto names = parts_.elementNames.find(index);
  const bool sameNames = names == parts_.elementNames.end() ? entry.elementNames.empty()
                                                            : names->second == entry.elementNames;
  return sameNames && part.status() == entry.access;
}

ModelNode* PublishedTree::keptParent(const Entry& entry, const Kept& kept) const {
  if (entry.parent == rootEntry) {
    return root_;
  }
  const std::uint32_t parent = kept[entry.parent];
  return parent != isNew ? static_cast<ModelNode*>(parts_.created[parent].part.get()) : nullptr;
}

/// Those down to the entry, whose parents have theirs.
Ids PublishedTree::idsOf(const TreeDescription& description, std::size_t index) {
  Ids ids;
  for (std::size_t at = index; at != rootEntry; at = description.entries[at].parent) {
    ids.insert(ids.begin(), description.entries[at].id);
  }
  return ids;
}

/// Sets the ids that the description does not state, and finds the parts that stay.
PublishedTree::Kept PublishedTree::match(TreeDescription& description) {
  departed_.nextReload();
  std::unordered_map<const ModelPart*, std::uint32_t> indices;
  for (std::size_t index = 0; index < parts_.created.size(); ++index) {
    indices.emplace(parts_.created[index].part.get(), static_cast<std::uint32_t>(index));
  }
  std::unordered_map<std::size_t, std::vector<Entry*>> children;
  for (Entry& entry : description.entries) {
    children[entry.parent].push_back(&entry);
  }
  Kept kept(description.entries.size(), isNew);
  keepIds(children[rootEntry], root_, {}, departed_);
  for (std::size_t index = 0; index < kept.size(); ++index) {
    const Entry& entry = description.entries[index];
    const ModelNode* const parent = keptParent(entry, kept);
    ModelPart* const present = parent != nullptr ? parent->findChild(entry.id) : nullptr;
    const auto at = indices.find(present);
    const bool stays = at != indices.end() && isSame(at->second, entry);
    if (stays) {
      kept[index] = at->second;
    }
    // The children follow.
    if (entry.type == EntryType::node) {
      keepIds(children[index], stays ? static_cast<const ModelNode*>(present) : nullptr,
              idsOf(description, index), departed_);
    }
  }
  return kept;
}

/// Creates the parts that do not stay, and adds them to each other. `next` has no part for the
/// others.
std::optional<Error> PublishedTree::createNew(TreeDescription& description, const Kept& kept,
                                              Parts& next) {
  next.created.reserve(kept.size());
  for (std::size_t index = 0; index < kept.size(); ++index) {
    Entry& entry = description.entries[index];
    if (kept[index] == isNew) {
      if (auto error = addCreated(entry, next)) {
        return error;
      }
      if (entry.parent == rootEntry || kept[entry.parent] != isNew) {
        continue;
      }
      if (auto error = addToParent(next, index)) {
        return error;
      }
    } else {
      if (hasSource(entry)) {
        next.sources.emplace(index, entry.details);
      }
      next.created.push_back({nullptr, parentOf(entry), entry.type, elementsOf(entry)});
      if (!entry.elementNames.empty()) {
        next.elementNames.emplace(index, std::move(entry.elementNames));
      }
    }
  }
  return std::nullopt;
}

PublishedTree::Children PublishedTree::childrenOfKept(const TreeDescription& description,
                                                      const Kept& kept, const Parts& next) const {
  Children children;
  children[rootEntry];
  for (std::size_t index = 0; index < kept.size(); ++index) {
    const Entry& entry = description.entries[index];
    const bool stays = kept[index] != isNew;
    if (keptParent(entry, kept) != nullptr) {
      const Created& created = stays ? parts_.created[kept[index]] : next.created[index];
      children[entry.parent].push_back(created.part.get());
    }
    if (stays && entry.type == EntryType::node) {
      children[index];
    }
  }
  return children;
}

/// Moves the parts that stay to `next`, and replaces the others in the tree.
std::optional<Error> PublishedTree::replaceParts(Parts next, const Kept& kept,
                                                 const Children& children) {
  for (std::size_t index = 0; index < kept.size(); ++index) {
    if (kept[index] != isNew) {
      next.created[index].part = std::move(parts_.created[kept[index]].part);
    }
  }
  std::swap(parts_, next);
  std::optional<Error> error;
  for (const auto& [index, parts] : children) {
    ModelNode* const node =
        index == rootEntry ? root_ : static_cast<ModelNode*>(parts_.created[index].part.get());
    if (auto ofNode = errorOf(node->setChildren(parts), *node)) {
      error = std::move(ofNode);
    }
  }
  destroy(next.created);
  return error;
}

std::optional<Error> PublishedTree::reload(TreeDescription description,
                                           const KeepsValue& keepsValue) {
  const Kept kept = match(description);
  Parts next;
  if (auto error = createNew(description, kept, next)) {
    destroy(next.created);
    return error;
  }
  const Children children = childrenOfKept(description, kept, next);
  std::vector<bool> hadSource(kept.size());
  for (std::size_t index = 0; index < kept.size(); ++index) {
    hadSource[index] = kept[index] != isNew && parts_.sources.contains(kept[index]);
  }
  auto error = replaceParts(std::move(next), kept, children);
  for (std::size_t index = 0; index < kept.size(); ++index) {
    if (kept[index] != isNew) {
      auto ofPart = setKept(*parts_.created[index].part, description.entries[index],
                            hadSource[index], keepsValue);
      if (!error) {
        error = std::move(ofPart);
      }
    }
  }
  return error;
}

}  // namespace modelsrvd
