#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "modelsrv/model_part.h"

namespace modelsrvd {

/// A tree as a description file gives it, checked: whatever is held here can be
/// published. Nothing here hangs in a tree; `PublishedTree` makes the parts.

/// The types of value in the order in which the description's names list them.
/// `node` is an entry with children instead of a value.
enum class EntryType : std::uint8_t {
  node,
  boolean,
  int8,
  int16,
  int32,
  int64,
  uint8,
  uint16,
  uint32,
  uint64,
  float32,
  float64,
  text,
};

/// The names of the types, by `EntryType`; `node` has none.
inline constexpr std::array<std::string_view, 13> entryTypeNames{
    "",       "bool",   "int8",   "int16", "int32",  "int64", "uint8",
    "uint16", "uint32", "uint64", "float", "double", "text"};

/// One value in the widest form of its type: bool, the signed integers, the
/// unsigned ones, both floating types (a float's value is one that a float
/// holds), text.
using EntryValue = std::variant<bool, std::int64_t, std::uint64_t, double, std::string>;

/// One node or part.
struct Entry {
  /// Where its node stands in `TreeDescription::entries`, or `rootEntry`.
  std::size_t parent = 0;
  std::string name;
  std::vector<EntryValue> values;         ///< one; an array: one an element; a node: none
  std::vector<std::string> elementNames;  ///< none, or one an element
  ModelSrv::ModelPartId id = 0;
  ModelSrv::ModelPartStatus access = ModelSrv::ModelPartStatus_ReadWrite;
  EntryType type = EntryType::node;
  bool array = false;
  bool subscribable = true;
};

/// The `parent` of what hangs below the root itself.
inline constexpr std::size_t rootEntry = static_cast<std::size_t>(-1);

struct TreeDescription {
  std::string name;  ///< the port's; empty where the file gives none
  /// Each node before its children, siblings in the file's order. Whoever makes
  /// parts of them can let go of each on the way.
  std::deque<Entry> entries;
};

}  // namespace modelsrvd
