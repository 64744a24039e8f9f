#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "servers/entry_values.h"
#include "servers/error.h"
#include "servers/tree_description.h"

namespace modelsrvd {

/// Builds the description of a tree from the events of a JSON parser: the start and
/// end of objects and arrays, keys and scalars. Knows the format of the description
/// but no JSON syntax; the events must be properly nested.
///
/// Each event returns nothing or the error that ends the parsing, which begins with
/// the path of the wrong entry.
class DescriptionReader {
 public:
  [[nodiscard]] std::optional<Error> startObject();
  [[nodiscard]] std::optional<Error> key(std::string_view name);
  [[nodiscard]] std::optional<Error> scalar(Scalar value);
  [[nodiscard]] std::optional<Error> endObject();
  [[nodiscard]] std::optional<Error> startArray();
  [[nodiscard]] std::optional<Error> endArray();

  /// The description; to be called once, after the end of the outermost object.
  [[nodiscard]] TreeDescription take() { return std::move(description_); }

 private:
  enum class Key : std::uint8_t {
    id,
    name,
    type,
    value,
    elements,
    children,
    access,
    subscribable,
    none,
  };

  enum class Kind : std::uint8_t { root, entry, element, childArray, elementArray };

  /// An object or array that has started and not ended.
  struct Level {
    Kind kind = Kind::root;
    Key key = Key::none;  ///< an object's current key
    unsigned seen = 0;    ///< an object's keys so far, one bit each
    std::size_t entry = rootEntry;
    std::size_t index = 0;  ///< an array's current index
    std::optional<ModelSrv::ModelPartId> id;
    Scalar value = nullptr;
    std::string name;  ///< an element's name

    // An array of children: the ids so far, and the next default id.
    std::vector<bool> ids;
    unsigned nextId = 1;

    // An array of elements, kept until the type of the entry is known.
    std::vector<Scalar> elementValues;
    std::vector<std::string> elementNames;
    bool elementsNamed = false;
  };

  [[nodiscard]] static std::string_view nameOf(Key key);
  [[nodiscard]] static Key findKey(std::string_view name);
  [[nodiscard]] static std::string_view expectedFor(Key key);
  [[nodiscard]] static unsigned allowedKeys(Kind kind);
  [[nodiscard]] static unsigned bit(Key key) { return 1U << static_cast<unsigned>(key); }
  [[nodiscard]] static bool has(const Level& level, Key key) {
    return (level.seen & bit(key)) != 0;
  }

  /// An error at the innermost level, or at the path `below` it.
  [[nodiscard]] Error errorAt(std::string_view text, std::string_view below = {}) const;
  [[nodiscard]] std::string path() const;
  /// The error of a value that is not what its key expects.
  [[nodiscard]] Error unexpected(std::string_view given) const;

  [[nodiscard]] Entry& entryOf(const Level& level) { return description_.entries[level.entry]; }
  [[nodiscard]] std::size_t depth() const;
  [[nodiscard]] std::optional<Error> startEntry();
  [[nodiscard]] std::optional<Error> startElement();
  [[nodiscard]] std::optional<Error> setId(const Scalar& value);
  [[nodiscard]] std::optional<Error> setName(Scalar& value);
  [[nodiscard]] std::optional<Error> setType(const Scalar& value);
  [[nodiscard]] std::optional<Error> setAccess(const Scalar& value);
  [[nodiscard]] std::optional<Error> setSubscribable(const Scalar& value);
  [[nodiscard]] std::optional<Error> endRoot();
  [[nodiscard]] std::optional<Error> endEntry();
  [[nodiscard]] std::optional<Error> endElement();
  [[nodiscard]] std::optional<Error> checkKeys(const Level& level) const;
  [[nodiscard]] std::optional<Error> assignId(const Level& level, Level& siblings);
  [[nodiscard]] std::optional<Error> convertValue(const Level& level);
  [[nodiscard]] std::optional<Error> convertElements(const Level& level);

  TreeDescription description_;
  std::vector<Level> levels_;
};

}  // namespace modelsrvd
