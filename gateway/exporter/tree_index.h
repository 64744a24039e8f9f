#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "gateway/wire/shape.h"

namespace modelgate {

/// The position of a part in a shape.
using Position = std::uint32_t;

/// Stands for the root, which has no position.
inline constexpr Position rootPosition = std::numeric_limits<Position>::max();

/// What the text of a value is in JSON.
enum class ValueKind : std::uint8_t { none, boolean, number, text };

/// Finds the parts of a shape by chain and by path. Compact, and constant after construction: any
/// thread may use it.
class TreeIndex {
 public:
  /// The depths are those of a valid shape.
  explicit TreeIndex(const Shape& shape);

  [[nodiscard]] std::size_t size() const { return entries_.size(); }

  /// The part with these ids; `rootPosition` for none of them.
  [[nodiscard]] std::optional<Position> find(std::span<const ModelSrv::ModelPartId> chain) const;
  /// The part at a path of names such as "/cpu/load", the first one of several with the same name.
  /// `rootPosition` for "/" and the empty text. A level that is empty is ignored.
  [[nodiscard]] std::optional<Position> findPath(std::string_view path) const;

  /// Where the parts below `position` end: the next position that is not below it.
  [[nodiscard]] Position end(Position position) const;
  /// The node above; `rootPosition` for a child of the root.
  [[nodiscard]] Position parent(Position position) const { return entries_[position].parent; }
  [[nodiscard]] std::vector<ModelSrv::ModelPartId> chain(Position position) const;
  /// The names along the chain.
  [[nodiscard]] std::vector<std::string_view> names(Position position) const;

  [[nodiscard]] ModelSrv::ModelPartId id(Position position) const { return entries_[position].id; }
  [[nodiscard]] std::string_view name(Position position) const;
  [[nodiscard]] bool isNode(Position position) const { return entries_[position].isNode; }
  [[nodiscard]] bool isSubscribable(Position position) const {
    return entries_[position].subscribable;
  }
  [[nodiscard]] ValueKind kind(Position position) const { return entries_[position].kind; }
  /// Of an array; 0 for a single value or a node.
  [[nodiscard]] unsigned elements(Position position) const { return entries_[position].elements; }
  /// None, or one for each element.
  [[nodiscard]] std::span<const std::string> elementNames(Position position) const;

 private:
  struct Entry {
    Position parent;
    Position end;
    std::uint32_t nameStart;
    ModelSrv::ModelPartId id;
    std::uint16_t nameSize;
    std::uint16_t elements;
    ValueKind kind;
    bool isNode;
    bool subscribable;
  };
  struct Child {
    std::uint64_t key;  ///< of the parent and the id
    Position position;
  };

  [[nodiscard]] static std::uint64_t keyOf(Position parent, ModelSrv::ModelPartId id) {
    return (std::uint64_t{parent} << 16U) | id;
  }

  std::vector<Entry> entries_;
  std::string names_;
  std::vector<Child> children_;  ///< in the order of the keys
  std::unordered_map<Position, std::vector<std::string>> elementNames_;
};

}  // namespace modelgate
