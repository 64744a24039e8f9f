#include "bindings/c/source/number_text.h"

#include <system_error>

namespace treescope_c {

namespace {

/// Above this no part of whole numbers can hold the value. Every whole number up to it has fewer
/// digits than the buffer has bytes.
constexpr double wholeLimit = 0x1p64;

template <typename T>
treescope_result parse(std::string_view text, T& value) {
  if (text == "true" || text == "false") {
    value = text == "true" ? T{1} : T{0};
    return TREESCOPE_SUCCESS;
  }
  T parsed{};
  const char* const last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, parsed);
  if (error == std::errc::invalid_argument || end != last) {
    return TREESCOPE_BAD_TEXT;
  }
  if (error != std::errc{}) {
    return TREESCOPE_OUT_OF_RANGE;
  }
  value = parsed;
  return TREESCOPE_SUCCESS;
}

}  // namespace

std::string numberText(double value) {
  if (std::trunc(value) == value && std::abs(value) <= wholeLimit) {
    std::array<char, 40> text{};
    const auto end = std::to_chars(text.begin(), text.end(), value, std::chars_format::fixed);
    return {text.data(), end.ptr};
  }
  return valueText(value);
}

bool hasCountedForm(std::string_view text) {
  const std::size_t lineFeed = text.find('\n');
  if (lineFeed == std::string_view::npos) {
    return false;
  }
  std::size_t count = 0;
  const char* const last = text.data() + lineFeed;
  const auto [end, error] = std::from_chars(text.data(), last, count);
  return error == std::errc{} && end == last && count == text.size() - lineFeed - 1;
}

treescope_result parseNumber(std::string_view text, double& value) {
  return parse(text, value);
}

treescope_result parseNumber(std::string_view text, std::int64_t& value) {
  const treescope_result result = parse(text, value);
  if (result != TREESCOPE_BAD_TEXT) {
    return result;
  }
  // The shortest form of a floating-point number may have an exponent, such as "1e+05".
  double real = 0;
  if (parse(text, real) != TREESCOPE_SUCCESS || std::trunc(real) != real) {
    return TREESCOPE_BAD_TEXT;
  }
  constexpr double limit = 0x1p63;
  if (real < -limit || real >= limit) {
    return TREESCOPE_OUT_OF_RANGE;
  }
  value = static_cast<std::int64_t>(real);
  return TREESCOPE_SUCCESS;
}

}  // namespace treescope_c
