#include "modelsrv/source/value_text.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>

#include "modelsrv/value_types.h"

namespace ModelSrv::internal {

namespace {

bool isSpace(char c) {
  return c == ' ' || c == '\t';
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isSpace(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && isSpace(text.back())) {
    text.remove_suffix(1);
  }
  return text;
}

bool isDigits(std::string_view text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

ModelRes parse(std::string_view text, bool& value) {
  const std::string_view word = trimmed(text);
  const bool isTrue = word == "true" || word == "1";
  if (!isTrue && word != "false" && word != "0") {
    return ModelRes_BadText;
  }
  value = isTrue;
  return ModelRes_Success;
}

/// Parses a word that is a number and nothing else. `value` is unchanged after an error.
template <typename T>
ModelRes parseNumber(std::string_view word, T& value) {
  T parsed{};
  const char* const end = word.data() + word.size();
  const auto [stop, error] = std::from_chars(word.data(), end, parsed);
  if (error == std::errc::invalid_argument || stop != end) {
    return ModelRes_BadText;
  }
  if (error != std::errc{}) {
    return ModelRes_OutOfRange;
  }
  value = parsed;
  return ModelRes_Success;
}

template <typename T>
requires std::is_integral_v<T> ModelRes parse(std::string_view text, T& value) {
  std::string_view word = trimmed(text);
  if constexpr (std::is_unsigned_v<T>) {
    // A negative number is valid text but out of range, except for -0.
    if (word.starts_with('-') && isDigits(word.substr(1))) {
      if (word.find_first_not_of('0', 1) != std::string_view::npos) {
        return ModelRes_OutOfRange;
      }
      word.remove_prefix(1);
    }
  }
  return parseNumber(word, value);
}

/// The parts of a floating-point number's bits.
template <typename T>
struct FloatBits {
  using Word = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;
  static constexpr int fractionBits = std::numeric_limits<T>::digits - 1;
  static constexpr Word fraction = (Word{1} << fractionBits) - 1;
  static constexpr Word sign = Word{1} << (sizeof(T) * 8 - 1);
  static constexpr Word exponent = static_cast<Word>(~(fraction | sign));
  static constexpr Word quiet = Word{1} << (fractionBits - 1);
};

constexpr std::string_view nanOpening = "nan(0x";

/// Parses "nan(0x...)" with the bits of the fraction, which std::from_chars would lose. Returns
/// nothing for any other text.
template <typename T>
std::optional<T> parseNan(std::string_view word) {
  using Bits = FloatBits<T>;
  typename Bits::Word sign = 0;
  if (word.starts_with('-')) {
    sign = Bits::sign;
    word.remove_prefix(1);
  }
  if (!word.starts_with(nanOpening) || !word.ends_with(')')) {
    return std::nullopt;
  }
  word.remove_prefix(nanOpening.size());
  word.remove_suffix(1);
  typename Bits::Word fraction = 0;
  const char* const end = word.data() + word.size();
  const auto [stop, error] = std::from_chars(word.data(), end, fraction, 16);
  if (error != std::errc{} || stop != end || fraction == 0 || fraction > Bits::fraction) {
    return std::nullopt;
  }
  return std::bit_cast<T>(static_cast<typename Bits::Word>(sign | Bits::exponent | fraction));
}

template <typename T>
requires std::is_floating_point_v<T> ModelRes parse(std::string_view text, T& value) {
  const std::string_view word = trimmed(text);
  if (const std::optional<T> nan = parseNan<T>(word)) {
    value = *nan;
    return ModelRes_Success;
  }
  return parseNumber(word, value);
}

/// The bytes of a text in the counted form; nothing if it has another form. Takes little time for a
/// large text, whatever is in it.
std::optional<std::string_view> countedBytes(std::string_view text) {
  constexpr std::size_t usualDigits = 32;
  std::size_t lineFeed = 0;
  while (lineFeed < text.size() && lineFeed < usualDigits && isDigits(text.substr(lineFeed, 1))) {
    ++lineFeed;
  }
  if (lineFeed == usualDigits) {
    lineFeed = text.find('\n', lineFeed);
  }
  if (lineFeed >= text.size() || text[lineFeed] != '\n') {
    return std::nullopt;
  }
  const std::string_view bytes = text.substr(lineFeed + 1);
  const std::string count = std::to_string(bytes.size());
  std::string_view zeros = text.substr(0, lineFeed);
  if (!zeros.ends_with(count)) {
    return std::nullopt;
  }
  zeros.remove_suffix(count.size());
  // All are the same as the first one.
  const bool areZeros = zeros.empty() || (zeros.front() == '0' &&
                                          zeros.substr(1) == zeros.substr(0, zeros.size() - 1));
  return areZeros ? std::optional(bytes) : std::nullopt;
}

ModelRes parse(std::string_view text, std::string_view& value) {
  const std::string_view bytes = countedBytes(text).value_or(text);
  if (bytes.size() > ModelValueText_Max) {
    return ModelRes_TooLarge;
  }
  value = bytes;
  return ModelRes_Success;
}

/// A buffer for the longest text of a number.
using NumberText = char[64];

void append(std::string& out, bool value) {
  out += value ? "true" : "false";
}

void append(std::string& out, std::string_view value) {
  out += value;
}

template <typename T>
requires std::is_arithmetic_v<T>
void append(std::string& out, T value) {
  NumberText buffer;
  if constexpr (std::is_floating_point_v<T>) {
    using Bits = FloatBits<T>;
    if (std::isnan(value)) {
      const auto bits = std::bit_cast<typename Bits::Word>(value);
      out += (bits & Bits::sign) != 0 ? "-" : "";
      const auto fraction = static_cast<typename Bits::Word>(bits & Bits::fraction);
      if (fraction == Bits::quiet) {
        out += "nan";
        return;
      }
      const auto written = std::to_chars(std::begin(buffer), std::end(buffer), fraction, 16);
      out += nanOpening;
      out.append(buffer, written.ptr);
      out += ')';
      return;
    }
  }
  const auto written = std::to_chars(std::begin(buffer), std::end(buffer), value);
  out.append(buffer, written.ptr);
}

}  // namespace

template <typename T>
ModelRes parseValue(std::string_view text, Parsed<T>& value) {
  return parse(text, value);
}

template <typename T>
void appendValue(std::string& out, const Parsed<T>& value) {
  append(out, value);
}

template <typename T>
bool isSameValue(const Parsed<T>& present, const Parsed<T>& value) {
  if constexpr (std::is_floating_point_v<T>) {
    using Word = typename FloatBits<T>::Word;
    return std::bit_cast<Word>(present) == std::bit_cast<Word>(value);
  } else {
    return present == value;
  }
}

std::string_view LineSplitter::next() {
  const std::size_t end = std::min(rest_.find('\n'), rest_.size());
  const std::string_view line = rest_.substr(0, end);
  rest_.remove_prefix(std::min(end + 1, rest_.size()));
  return line;
}

std::size_t LineSplitter::count(std::string_view text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
}

#define MODELSRV_INSTANTIATE(id, Type, name)                           \
  template ModelRes parseValue<Type>(std::string_view, Parsed<Type>&); \
  template void appendValue<Type>(std::string&, const Parsed<Type>&);  \
  template bool isSameValue<Type>(const Parsed<Type>&, const Parsed<Type>&);
MODELSRV_VALUE_TYPES(MODELSRV_INSTANTIATE)
#undef MODELSRV_INSTANTIATE

}  // namespace ModelSrv::internal
