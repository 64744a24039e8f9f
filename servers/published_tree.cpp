#include "servers/published_tree.h"

#include <limits>
#include <type_traits>
#include <utility>

namespace modelsrvd {

namespace {

using ModelSrv::ArrayPart;
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
ModelRes setTyped(ModelPart& part, const Entry& entry) {
  if (entry.array) {
    return static_cast<ArrayPart<T>&>(part).setValues(narrowAll<T>(entry.values));
  }
  return static_cast<ValuePart<T>&>(part).setValue(narrow<T>(entry.values.front()));
}

std::uint16_t elementsOf(const Entry& entry) {
  return entry.array ? static_cast<std::uint16_t>(entry.values.size()) : std::uint16_t{0};
}

/// Cannot fail: the attributes were checked.
void setAttributes(ModelPart& part, const Entry& entry) {
  static_cast<void>(part.setAttributes(entry.details != nullptr ? entry.details->attributes
                                                                : ModelSrv::PartAttributes()));
}

std::uint32_t parentOf(const Entry& entry) {
  return entry.parent == rootEntry ? noParent : static_cast<std::uint32_t>(entry.parent);
}

}  // namespace

template <typename T>
ModelPart* PublishedTree::createTyped(Entry& entry) {
  if (entry.array) {
    return &std::get<Arrays<T>>(arrays_).emplace_back(entry.id, std::move(entry.name),
                                                      narrowAll<T>(entry.values),
                                                      std::move(entry.elementNames), entry.access);
  }
  return &std::get<Values<T>>(values_).emplace_back(
      entry.id, std::move(entry.name), narrow<T>(std::move(entry.values.front())), entry.access);
}

ModelPart* PublishedTree::create(Entry& entry) {
  ModelPart* const part =
      entry.type == EntryType::node
          ? static_cast<ModelPart*>(&nodes_.emplace_back(entry.id, std::move(entry.name)))
          : visitValueType(entry.type, [&]<typename T>() { return createTyped<T>(entry); });
  setAttributes(*part, entry);
  if (!entry.subscribable) {
    part->setSubscribable(false);
  }
  return part;
}

PublishedTree::PublishedTree(TreeDescription description) {
  created_.reserve(description.entries.size());
  // Each entry is freed once its part exists, so that memory never holds both trees.
  for (; !description.entries.empty(); description.entries.pop_front()) {
    Entry& entry = description.entries.front();
    if (!entry.elementNames.empty()) {
      elementNames_.emplace(created_.size(), entry.elementNames);
    }
    const std::uint16_t elements = elementsOf(entry);
    ModelPart* const part = create(entry);
    if (entry.parent != rootEntry) {
      auto& parent = static_cast<ModelSrv::ModelNode&>(*created_[entry.parent].part);
      const ModelRes result = parent.add(part);
      if (result != ModelSrv::ModelRes_Success && !error_) {
        error_ = Error{oneLine(part->name()) + ": " + ModelSrv::describe(result)};
      }
    }
    created_.push_back({part, parentOf(entry), entry.type, elements});
  }
}

PublishedTree::~PublishedTree() {
  if (root_ == nullptr) {
    return;
  }
  for (auto created = created_.rbegin(); created != created_.rend(); ++created) {
    if (created->parent == noParent && created->part->parent() != nullptr) {
      // Cannot fail: the part is a child of the root.
      static_cast<void>(root_->remove(created->part));
    }
  }
}

std::optional<Error> PublishedTree::publish(ModelSrv::ModelRoot& root) {
  root_ = &root;
  for (const Created& created : created_) {
    if (created.parent != noParent || error_) {
      continue;
    }
    const ModelRes result = root.add(created.part);
    if (result != ModelSrv::ModelRes_Success) {
      error_ = Error{oneLine(created.part->name()) + ": " + ModelSrv::describe(result)};
    }
  }
  return error_;
}

bool PublishedTree::isSameEntry(std::size_t index, const Entry& entry) const {
  const Created& created = created_[index];
  const ModelPart& part = *created.part;
  if (created.parent != parentOf(entry) || created.type != entry.type ||
      created.elements != elementsOf(entry) || part.id() != entry.id || part.name() != entry.name) {
    return false;
  }
  if (entry.type == EntryType::node) {
    return true;
  }
  const auto names = elementNames_.find(index);
  const bool sameNames = names == elementNames_.end() ? entry.elementNames.empty()
                                                      : names->second == entry.elementNames;
  return sameNames && part.status() == entry.access && part.subscribable() == entry.subscribable;
}

bool PublishedTree::hasSameStructure(const TreeDescription& description) const {
  if (created_.size() != description.entries.size()) {
    return false;
  }
  for (std::size_t index = 0; index < created_.size(); ++index) {
    if (!isSameEntry(index, description.entries[index])) {
      return false;
    }
  }
  return true;
}

bool PublishedTree::updateValues(const TreeDescription& description) {
  if (!hasSameStructure(description)) {
    return false;
  }
  for (std::size_t index = 0; index < created_.size(); ++index) {
    const Entry& entry = description.entries[index];
    setAttributes(*created_[index].part, entry);
    if (entry.type != EntryType::node) {
      ModelPart& part = *created_[index].part;
      // Cannot fail: the values were checked.
      static_cast<void>(
          visitValueType(entry.type, [&]<typename T>() { return setTyped<T>(part, entry); }));
    }
  }
  return true;
}

}  // namespace modelsrvd
