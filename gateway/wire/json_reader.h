#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace modelgate {

/// What a JSON text has at a place.
struct JsonItem {
  enum class Kind {
    unsignedNumber,
    negativeNumber,
    real,  ///< with a fraction or an exponent, or beyond 64 bits
    boolean,
    null,
    text,
    object,  ///< its members follow
    array,   ///< its items follow
  };
  Kind kind = Kind::null;
  std::uint64_t number = 0;  ///< of a negative number the absolute value
  /// UTF-8; of a number as it was written, and "true" or "false".
  std::string_view text;
};

/// Where an item is: the names from the top object down. The name of an item of an array is empty;
/// the array itself was visited before.
using JsonPath = std::span<const std::string>;

class JsonVisitor {
 public:
  /// Called for each item in the order of the text, the top one with an empty path. Returns
  /// whether the item is allowed where it is.
  virtual bool visit(JsonPath path, const JsonItem& item) = 0;

 protected:
  ~JsonVisitor() = default;
};

/// Reads a JSON text (RFC 8259) without building a tree. False if it is none, has more than
/// `maxJsonNesting` levels, or the visitor did not allow an item.
[[nodiscard]] bool readJson(std::string_view text, JsonVisitor& visitor);

inline constexpr std::size_t maxJsonNesting = 16;

}  // namespace modelgate
