#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "servers/description_keys.h"
#include "servers/entry_conversion.h"
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
  enum class Kind : std::uint8_t { root, entry, element, childArray, elementArray, choiceArray };

  /// An object or array that has started and not ended.
  struct Level {
    Kind kind = Kind::root;
    Key key = Key::none;  ///< an object's current key
    Keys seen = 0;        ///< an object's keys so far
    std::size_t entry = rootEntry;
    std::size_t index = 0;  ///< an array's current index
    std::optional<ModelSrv::ModelPartId> id;
    Scalar value = nullptr;
    std::string name;  ///< an element's name

    // An array of children: the ids so far, and the next default id.
    std::vector<bool> ids;
    unsigned nextId = 1;

    RawEntry raw;  ///< of an entry, or its elements or choices of their array
    std::vector<std::string> elementNames;
    bool elementsNamed = false;
  };

  [[nodiscard]] static Keys allowedKeys(Kind kind);
  [[nodiscard]] static Kind kindOfArray(Key key);
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
  [[nodiscard]] std::optional<Error> addChoice(Scalar value);
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
  [[nodiscard]] std::optional<Error> convert(const Level& level);

  TreeDescription description_;
  std::vector<Level> levels_;
};

}  // namespace modelsrvd
