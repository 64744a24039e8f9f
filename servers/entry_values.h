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

/// A number with a fraction or an exponent, or one that no 64-bit integer holds.
struct RealNumber {
  double value = 0;
  std::string text;  ///< as it stands in the file
};

/// What a key of a description can hold besides objects and arrays.
using Scalar =
    std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, RealNumber, std::string>;

/// What kind of thing `scalar` is, for messages: "a number", "a text", …
[[nodiscard]] std::string_view kindOf(const Scalar& scalar);

/// The type of that name, nothing where there is none (a node has no name).
[[nodiscard]] std::optional<EntryType> findEntryType(std::string_view name);

/// `scalar` as a value of `type`, which is not `node`. The error says what is
/// wrong without saying where.
[[nodiscard]] Result<EntryValue> toEntryValue(const Scalar& scalar, EntryType type);

}  // namespace modelsrvd
