#include "gateway/exporter/tree_index.h"

#include <algorithm>

namespace modelgate {

using ModelSrv::ModelPartId;

namespace {

ValueKind kindOf(std::string_view type) {
  if (type.empty() || type == "node") {
    return ValueKind::none;
  }
  if (type == "bool") {
    return ValueKind::boolean;
  }
  const bool isNumber =
      type.starts_with("int") || type.starts_with("uint") || type == "float" || type == "double";
  return isNumber ? ValueKind::number : ValueKind::text;
}

}  // namespace

TreeIndex::TreeIndex(const Shape& shape) {
  entries_.reserve(shape.size());
  children_.reserve(shape.size());
  std::vector<Position> path;
  for (const ShapePart& part : shape) {
    const auto position = static_cast<Position>(entries_.size());
    while (path.size() >= part.depth) {
      entries_[path.back()].end = position;
      path.pop_back();
    }
    const Position parent = path.empty() ? rootPosition : path.back();
    path.push_back(position);
    entries_.push_back({parent, position + 1, static_cast<std::uint32_t>(names_.size()), part.id,
                        static_cast<std::uint16_t>(part.name.size()),
                        static_cast<std::uint16_t>(part.elements), kindOf(part.type),
                        part.type == "node", part.subscribable});
    names_ += part.name;
    children_.push_back({keyOf(parent, part.id), position});
    if (!part.elementNames.empty()) {
      elementNames_.emplace(position, part.elementNames);
    }
  }
  for (const Position open : path) {
    entries_[open].end = static_cast<Position>(entries_.size());
  }
  std::sort(children_.begin(), children_.end(),
            [](const Child& one, const Child& other) { return one.key < other.key; });
}

std::optional<Position> TreeIndex::find(std::span<const ModelPartId> chain) const {
  Position position = rootPosition;
  for (const ModelPartId id : chain) {
    const std::uint64_t key = keyOf(position, id);
    const auto child =
        std::lower_bound(children_.begin(), children_.end(), key,
                         [](const Child& one, std::uint64_t wanted) { return one.key < wanted; });
    if (child == children_.end() || child->key != key) {
      return std::nullopt;
    }
    position = child->position;
  }
  return position;
}

std::optional<Position> TreeIndex::findPath(std::string_view path) const {
  Position position = rootPosition;
  while (!path.empty()) {
    const std::string_view level = path.substr(0, path.find('/'));
    path.remove_prefix(std::min(path.size(), level.size() + 1));
    if (level.empty()) {
      continue;
    }
    const Position last = end(position);
    Position child = position == rootPosition ? 0 : position + 1;
    while (child < last && name(child) != level) {
      child = entries_[child].end;
    }
    if (child >= last) {
      return std::nullopt;
    }
    position = child;
  }
  return position;
}

Position TreeIndex::end(Position position) const {
  return position == rootPosition ? static_cast<Position>(entries_.size()) : entries_[position].end;
}

std::vector<ModelPartId> TreeIndex::chain(Position position) const {
  std::vector<ModelPartId> ids;
  for (; position != rootPosition; position = entries_[position].parent) {
    ids.push_back(entries_[position].id);
  }
  std::reverse(ids.begin(), ids.end());
  return ids;
}

std::vector<std::string_view> TreeIndex::names(Position position) const {
  std::vector<std::string_view> names;
  for (; position != rootPosition; position = entries_[position].parent) {
    names.push_back(name(position));
  }
  std::reverse(names.begin(), names.end());
  return names;
}

std::string_view TreeIndex::name(Position position) const {
  const Entry& entry = entries_[position];
  return std::string_view(names_).substr(entry.nameStart, entry.nameSize);
}

std::span<const std::string> TreeIndex::elementNames(Position position) const {
  const auto found = elementNames_.find(position);
  return found == elementNames_.end() ? std::span<const std::string>() : found->second;
}

}  // namespace modelgate
