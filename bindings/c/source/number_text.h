#pragma once

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "treescope.h"

/// Numbers of C programs as value text, and back. Not dependent on the locale.
namespace treescope_c {

/// The text that stores `value` in a part of any type that can hold it. A whole number has no
/// exponent, which an integer part would refuse.
[[nodiscard]] std::string numberText(double value);
[[nodiscard]] inline std::string numberText(std::int64_t value) {
  return std::to_string(value);
}

/// Sets `value` to what the text of a single value means. TREESCOPE_BAD_TEXT or
/// TREESCOPE_OUT_OF_RANGE; `value` is unchanged then.
[[nodiscard]] treescope_result parseNumber(std::string_view text, double& value);
[[nodiscard]] treescope_result parseNumber(std::string_view text, std::int64_t& value);

/// A store takes a text of the form "3, line feed, abc" for "abc" (the counted form). Whether
/// `text` has that form, so that it must be stored as the counted form of itself to arrive as it
/// is.
[[nodiscard]] bool hasCountedForm(std::string_view text);
[[nodiscard]] inline std::string countedForm(std::string_view text) {
  return std::to_string(text.size()).append("\n").append(text);
}

/// The value text of `value`, which is of one of the types of value.
template <typename T>
std::string valueText(const T& value) {
  if constexpr (std::is_same_v<T, std::string>) {
    return value;
  } else if constexpr (std::is_same_v<T, bool>) {
    return value ? "true" : "false";
  } else {
    // Longer than any number in its shortest form.
    std::array<char, 40> text{};
    const auto end = std::to_chars(text.begin(), text.end(), value);
    return {text.data(), end.ptr};
  }
}

}  // namespace treescope_c
