#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "servers/description_keys.h"
#include "servers/entry_values.h"
#include "servers/error.h"
#include "servers/tree_description.h"

namespace modelsrvd {

/// The values of an entry as the file has them, kept until its type is known.
struct RawEntry {
  std::map<Key, Scalar> scalars;  ///< by key, those that `isDetail`
  std::vector<Scalar> choices;
  std::vector<Scalar> elements;
};

/// Whether the value of `key` is kept for `convertDetails`.
[[nodiscard]] bool isDetail(Key key);

/// An error in an entry, and where: the path below the entry, such as "/value".
struct EntryError {
  std::string below;
  std::string text;
};

/// Sets the value of `entry`, whose type is known, to `value`.
[[nodiscard]] std::optional<EntryError> convertValue(const Scalar& value, Entry& entry);

/// Makes `entry` an array of `raw.elements`.
[[nodiscard]] std::optional<EntryError> convertElements(const RawEntry& raw, Entry& entry);

/// Sets the details of `entry`, whose values are converted, and checks these against them.
[[nodiscard]] std::optional<EntryError> convertDetails(const RawEntry& raw, Entry& entry);

}  // namespace modelsrvd
