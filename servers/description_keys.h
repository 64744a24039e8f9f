#pragma once

#include <cstdint>
#include <string_view>

namespace modelsrvd {

/// The keys of a description's objects.
enum class Key : std::uint8_t {
  id,
  name,
  type,
  value,
  elements,
  children,
  access,
  subscribable,
  unit,
  minimum,
  maximum,
  text,
  choices,
  file,
  simulate,
  period,
  interval,
  scale,
  offset,
  seed,
  none,
};

[[nodiscard]] std::string_view nameOf(Key key);

/// The key of that name, or `none`.
[[nodiscard]] Key findKey(std::string_view name);

/// What the value of `key` must be, for messages.
[[nodiscard]] std::string_view expectedFor(Key key);

/// A set of keys.
using Keys = unsigned;
[[nodiscard]] constexpr Keys bit(Key key) {
  return 1U << static_cast<unsigned>(key);
}

}  // namespace modelsrvd
