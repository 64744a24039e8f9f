#include "servers/description_keys.h"

#include <algorithm>
#include <array>

namespace modelsrvd {

namespace {

struct KeyRow {
  std::string_view name;
  std::string_view expected;
};

constexpr std::string_view aString = "a string";
constexpr std::string_view aValue = "a single value";

/// In the order of `Key`.
constexpr std::array keyTable{KeyRow{"id", "an integer from 0 to 65533"},
                              KeyRow{"name", aString},
                              KeyRow{"type", "the name of a type"},
                              KeyRow{"value", aValue},
                              KeyRow{"elements", "an array of elements"},
                              KeyRow{"children", "an array of entries"},
                              KeyRow{"access", R"("read-write", "read-only" or "protected")"},
                              KeyRow{"subscribable", "true or false"},
                              KeyRow{"unit", aString},
                              KeyRow{"minimum", aValue},
                              KeyRow{"maximum", aValue},
                              KeyRow{"text", aString},
                              KeyRow{"choices", "an array of values"},
                              KeyRow{"file", "a path"},
                              KeyRow{"simulate", R"("ramp", "sine", "noise" or "steps")"},
                              KeyRow{"period", "milliseconds"},
                              KeyRow{"interval", "milliseconds"},
                              KeyRow{"scale", "a number"},
                              KeyRow{"offset", "a number"},
                              KeyRow{"seed", "an integer"}};
static_assert(keyTable.size() == static_cast<std::size_t>(Key::none));

}  // namespace

std::string_view nameOf(Key key) {
  return keyTable[static_cast<std::size_t>(key)].name;
}

Key findKey(std::string_view name) {
  const auto found = std::find_if(keyTable.begin(), keyTable.end(),
                                  [name](const KeyRow& row) { return row.name == name; });
  return static_cast<Key>(found - keyTable.begin());
}

std::string_view expectedFor(Key key) {
  return key == Key::none ? "an object" : keyTable[static_cast<std::size_t>(key)].expected;
}

}  // namespace modelsrvd
