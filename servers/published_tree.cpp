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

/// What no description reaches, for the length of a file bounds it.
constexpr std::uint32_t noParent = std::numeric_limits<std::uint32_t>::max();

/// A checked description holds each value in its type's widest form.
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

/// `Values` is a vector, or one of which the texts may be taken.
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

std::uint32_t parentOf(const Entry& entry) {
  return entry.parent == rootEntry ? noParent : static_cast<std::uint32_t>(entry.parent);
}

}  // namespace

template <typename T>
ModelPart* PublishedTree::makeTyped(Entry& entry) {
  if (entry.array) {
    return &std::get<Arrays<T>>(arrays_).emplace_back(entry.id, std::move(entry.name),
                                                      narrowAll<T>(entry.values),
                                                      std::move(entry.elementNames), entry.access);
  }
  return &std::get<Values<T>>(values_).emplace_back(
      entry.id, std::move(entry.name), narrow<T>(std::move(entry.values.front())), entry.access);
}

ModelPart* PublishedTree::make(Entry& entry) {
  if (entry.type == EntryType::node) {
    return &nodes_.emplace_back(entry.id, std::move(entry.name));
  }
  ModelPart* const part =
      visitValueType(entry.type, [&]<typename T>() { return makeTyped<T>(entry); });
  if (!entry.subscribable) {
    part->setSubscribable(false);
  }
  return part;
}

PublishedTree::PublishedTree(TreeDescription description) {
  made_.reserve(description.entries.size());
  // Each entry goes as its part comes, so that one of the two is held at a time.
  for (; !description.entries.empty(); description.entries.pop_front()) {
    Entry& entry = description.entries.front();
    if (!entry.elementNames.empty()) {
      elementNames_.emplace(made_.size(), entry.elementNames);
    }
    const std::uint16_t elements = elementsOf(entry);
    ModelPart* const part = make(entry);
    if (entry.parent != rootEntry) {
      auto& parent = static_cast<ModelSrv::ModelNode&>(*made_[entry.parent].part);
      const ModelRes result = parent.add(part);
      if (result != ModelSrv::ModelRes_Success && !fault_) {
        fault_ = Error{oneLine(part->name()) + ": " + ModelSrv::describe(result)};
      }
    }
    made_.push_back({part, parentOf(entry), entry.type, elements});
  }
}

PublishedTree::~PublishedTree() {
  if (root_ == nullptr) {
    return;
  }
  for (auto made = made_.rbegin(); made != made_.rend(); ++made) {
    if (made->parent == noParent && made->part->parent() != nullptr) {
      // It hangs there, so nothing refuses.
      static_cast<void>(root_->remove(made->part));
    }
  }
}

std::optional<Error> PublishedTree::publish(ModelSrv::ModelRoot& root) {
  root_ = &root;
  for (const Made& made : made_) {
    if (made.parent != noParent || fault_) {
      continue;
    }
    const ModelRes result = root.add(made.part);
    if (result != ModelSrv::ModelRes_Success) {
      fault_ = Error{oneLine(made.part->name()) + ": " + ModelSrv::describe(result)};
    }
  }
  return fault_;
}

bool PublishedTree::sameEntry(std::size_t index, const Entry& entry) const {
  const Made& made = made_[index];
  const ModelPart& part = *made.part;
  if (made.parent != parentOf(entry) || made.type != entry.type ||
      made.elements != elementsOf(entry) || part.id() != entry.id || part.name() != entry.name) {
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

bool PublishedTree::sameShape(const TreeDescription& description) const {
  if (made_.size() != description.entries.size()) {
    return false;
  }
  for (std::size_t index = 0; index < made_.size(); ++index) {
    if (!sameEntry(index, description.entries[index])) {
      return false;
    }
  }
  return true;
}

bool PublishedTree::takeValues(const TreeDescription& description) {
  if (!sameShape(description)) {
    return false;
  }
  for (std::size_t index = 0; index < made_.size(); ++index) {
    const Entry& entry = description.entries[index];
    if (entry.type != EntryType::node) {
      ModelPart& part = *made_[index].part;
      // A checked value is within every limit.
      static_cast<void>(
          visitValueType(entry.type, [&]<typename T>() { return setTyped<T>(part, entry); }));
    }
  }
  return true;
}

}  // namespace modelsrvd
