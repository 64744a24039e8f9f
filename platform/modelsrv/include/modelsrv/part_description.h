#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "kstd/export.h"
#include "modelsrv/model_part.h"

namespace ModelSrv {

/// The maximum size of a unit, in bytes.
inline constexpr std::size_t ModelUnit_Max = 64;
/// The maximum size of an attribute's text, a limit or a choice, in bytes.
inline constexpr std::size_t ModelAttributeText_Max = 512;
/// The maximum number of choices.
inline constexpr std::size_t ModelChoices_Max = 1000;
/// The maximum size of the reason why a store was refused, in bytes.
inline constexpr std::size_t ModelReason_Max = 512;

/// Whether `text` may be one of a part's attributes: valid UTF-8 (RFC 3629) without control
/// characters, which are U+0000 to U+001F and U+007F to U+009F. Any thread may call it.
[[nodiscard]] KRV_EXPORT bool isLine(std::string_view text);

/// What a server states about a part, beyond its type: for people who read the value, and for
/// programs that display or check it. Each attribute is optional; an empty one is not stated.
///
/// All texts are UTF-8 in one line: without control characters.
struct PartAttributes {
  std::string unit;  ///< of the value, such as "bytes" or "degrees"; at most `ModelUnit_Max` bytes
  std::string minimum;               ///< the smallest value of a number, as value text
  std::string maximum;               ///< the largest value of a number, as value text
  std::string text;                  ///< a line about the part, for a person
  std::vector<std::string> choices;  ///< the only allowed values, as value texts

  bool operator==(const PartAttributes&) const = default;
};

/// What a part is, for a program that does not know the server's tree.
struct PartDescription {
  /// The name of the type of value ("bool", "int8" to "int64", "uint8" to "uint64", "float",
  /// "double", "text"; later servers may have others) or "node". Empty if the server does not
  /// say: its part has no value or is of a class of its own, or the server knows no description.
  std::string type;
  /// Which clients may store. `ModelPartStatus_Void` for a node, or if it is not known.
  ModelPartStatus access = ModelPartStatus_Void;
  bool subscribable = true;               ///< true too if it is not known
  unsigned elements = 0;                  ///< of an array; 0 for a single value or a node
  std::vector<std::string> elementNames;  ///< none, or one for each element
  PartAttributes attributes;              ///< what the server states, cleaned of control characters

  bool operator==(const PartDescription&) const = default;
};

}  // namespace ModelSrv
