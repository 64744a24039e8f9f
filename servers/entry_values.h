#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "servers/error.h"
#include "servers/tree_description.h"

namespace modelsrvd {

/// A number with a fraction or an exponent, or an integer that 64 bits cannot hold.
struct RealNumber {
  double value = 0;
  std::string text;  ///< as written in the file
};

/// A JSON value that is neither an object nor an array.
using Scalar =
    std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, RealNumber, std::string>;

/// `scalar` as JSON in one line, for error messages; long text is shortened.
[[nodiscard]] std::string toJson(const Scalar& scalar);

/// The type with that name; nothing if there is none (`node` has no name).
[[nodiscard]] std::optional<EntryType> findEntryType(std::string_view name);

/// The name of a type; empty for `node`.
[[nodiscard]] std::string_view nameOf(EntryType type);

/// Whether values of a type are numbers.
[[nodiscard]] bool isNumber(EntryType type);

/// The value text of `value`, as the library has it.
[[nodiscard]] std::string toText(const EntryValue& value, EntryType type);

/// `scalar` as a value of `type`, which is not `node`. The error does not include the
/// path of the entry.
[[nodiscard]] Result<EntryValue> toEntryValue(const Scalar& scalar, EntryType type);

}  // namespace modelsrvd
