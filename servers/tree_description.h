#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "modelsrv/model_part.h"
#include "modelsrv/value_types.h"
#include "servers/entry_details.h"

namespace modelsrvd {

/// A tree as read from a description file and checked, so that it can be published.
/// Plain data: `PublishedTree` creates the nodes and parts.

/// The type of an entry: one of the types of value, or `node` for an entry with children
/// instead of a value.
enum class EntryType : std::uint8_t {
  node,
#define MODELSRVD_ENTRY_TYPE(id, Type, name) id,
  MODELSRV_VALUE_TYPES(MODELSRVD_ENTRY_TYPE)
#undef MODELSRVD_ENTRY_TYPE
};

/// The names of the types in a description, indexed by `EntryType`; `node` has none.
inline constexpr std::array entryTypeNames{std::string_view(),
#define MODELSRVD_ENTRY_TYPE_NAME(id, Type, name) std::string_view(name),
                                           MODELSRV_VALUE_TYPES(MODELSRVD_ENTRY_TYPE_NAME)
#undef MODELSRVD_ENTRY_TYPE_NAME
};

/// Calls `visit.operator()<T>()` with the C++ type of `type`, which is not `node`.
template <typename Visit>
auto visitValueType(EntryType type, Visit visit) {
  switch (type) {
#define MODELSRVD_VISIT_TYPE(id, Type, name) \
  case EntryType::id:                        \
    return visit.template operator()<Type>();
    MODELSRV_VALUE_TYPES(MODELSRVD_VISIT_TYPE)
#undef MODELSRVD_VISIT_TYPE
    case EntryType::node:
      break;
  }
  return visit.template operator()<std::string>();
}

/// One value in the widest type of its kind: bool, signed integer, unsigned integer,
/// floating point (for `float32` rounded to a float), text.
using EntryValue = std::variant<bool, std::int64_t, std::uint64_t, double, std::string>;

/// One node or part.
struct Entry {
  /// The index of the parent in `TreeDescription::entries`, or `rootEntry`.
  std::size_t parent = 0;
  std::string name;
  std::vector<EntryValue> values;               ///< one per element of an array; none for a node
  std::vector<std::string> elementNames;        ///< none, or one per element
  std::shared_ptr<const EntryDetails> details;  ///< null if there are none
  ModelSrv::ModelPartId id = 0;
  ModelSrv::ModelPartStatus access = ModelSrv::ModelPartStatus_ReadWrite;
  EntryType type = EntryType::node;
  bool array = false;
  bool subscribable = true;
  bool hasStatedId = false;  ///< false: the id is the default one
};

/// The `parent` of the root's children.
inline constexpr std::size_t rootEntry = static_cast<std::size_t>(-1);

struct TreeDescription {
  std::string name;  ///< the port's; empty if the file has none
  /// Each node before its children, siblings in the order of the file. A deque, so
  /// that entries can be freed one by one as their parts are created.
  std::deque<Entry> entries;
};

}  // namespace modelsrvd
