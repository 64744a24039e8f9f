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

/// Makes a tree's description from the objects, arrays, keys and scalars of its
/// JSON text as they come; knows no JSON itself.
///
/// Each operation gives nothing, or the error that ends the reading, beginning
/// with the path of what is wrong. The calls nest as JSON does.
class DescriptionReader {
 public:
  using Fault = std::optional<Error>;

  [[nodiscard]] Fault startObject();
  [[nodiscard]] Fault key(std::string_view name);
  [[nodiscard]] Fault scalar(Scalar value);
  [[nodiscard]] Fault endObject();
  [[nodiscard]] Fault startArray();
  [[nodiscard]] Fault endArray();

  /// What was read; to be asked once, after the outermost object's end.
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

  enum class Place : std::uint8_t { root, entry, element, childArray, elementArray };

  /// An object or array that is open.
  struct Level {
    Place place = Place::root;
    Key key = Key::none;  ///< an object's current one
    unsigned seen = 0;    ///< an object's keys so far, a bit each
    std::size_t entry = rootEntry;
    std::size_t item = 0;  ///< an array's current index
    std::optional<ModelSrv::ModelPartId> id;
    Scalar value = nullptr;
    std::string name;  ///< an element's

    // An array of children: the ids so far, and the one for a child without.
    std::vector<bool> ids;
    unsigned nextId = 1;

    // An array of elements, kept until the type is known.
    std::vector<Scalar> elementValues;
    std::vector<std::string> elementNames;
    bool elementsNamed = false;
  };

  [[nodiscard]] static std::string_view nameOf(Key key);
  [[nodiscard]] static Key findKey(std::string_view name);
  [[nodiscard]] static std::string_view wanted(Key key);
  [[nodiscard]] static unsigned allowedKeys(Place place);
  [[nodiscard]] static unsigned bit(Key key) { return 1U << static_cast<unsigned>(key); }
  [[nodiscard]] static bool has(const Level& level, Key key) {
    return (level.seen & bit(key)) != 0;
  }

  /// The error at the innermost open thing, or at something below it.
  [[nodiscard]] Error fail(std::string_view text, std::string_view below = {}) const;
  [[nodiscard]] std::string path() const;
  /// The error of a value that is not of its key's kind.
  [[nodiscard]] Error wrongThing(std::string_view given) const;

  [[nodiscard]] Entry& entryOf(const Level& level) { return description_.entries[level.entry]; }
  [[nodiscard]] std::size_t depth() const;
  [[nodiscard]] Fault startEntry();
  [[nodiscard]] Fault startElement();
  [[nodiscard]] Fault takeId(const Scalar& value);
  [[nodiscard]] Fault takeName(Scalar& value);
  [[nodiscard]] Fault takeType(const Scalar& value);
  [[nodiscard]] Fault takeAccess(const Scalar& value);
  [[nodiscard]] Fault takeSubscribable(const Scalar& value);
  [[nodiscard]] Fault endRoot();
  [[nodiscard]] Fault endEntry();
  [[nodiscard]] Fault endElement();
  [[nodiscard]] Fault settleKind(Level& level);
  [[nodiscard]] Fault settleId(const Level& level, Level& siblings);
  [[nodiscard]] Fault settleValue(Level& level);
  [[nodiscard]] Fault settleElements(Level& level);

  TreeDescription description_;
  std::vector<Level> levels_;
};

}  // namespace modelsrvd
