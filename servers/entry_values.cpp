#include "servers/entry_values.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <limits>
#include <type_traits>
#include <utility>

namespace modelsrvd {

namespace {

/// The part of a text from the file that fits into a message.
constexpr std::size_t maxShownBytes = 40;

std::string shortened(std::string_view text) {
  return oneLine(text.substr(0, maxShownBytes)) + (text.size() > maxShownBytes ? "…" : "");
}

Error wrongKind(const Scalar& scalar, EntryType type, std::string_view expected) {
  return {"expected " + std::string(expected) + " for " + std::string(nameOf(type)) + ", got " +
          toJson(scalar)};
}

Error outOfRange(const Scalar& scalar, EntryType type) {
  return {toJson(scalar) + " is out of range for " + std::string(nameOf(type))};
}

/// Whether `number` is an integer that 64 bits cannot hold.
bool isHugeInteger(const RealNumber& number) {
  return number.text.find_first_of(".eE") == std::string::npos;
}

/// The JSON parser returns negative integers as signed, all others as unsigned.
template <typename T>
Result<EntryValue> toInteger(const Scalar& scalar, EntryType type) {
  if (const auto* number = std::get_if<std::int64_t>(&scalar)) {
    if (std::in_range<T>(*number)) {
      return EntryValue(
          static_cast<std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>>(
              *number));
    }
    return outOfRange(scalar, type);
  }
  if (const auto* number = std::get_if<std::uint64_t>(&scalar)) {
    if (std::in_range<T>(*number)) {
      return EntryValue(
          static_cast<std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>>(
              *number));
    }
    return outOfRange(scalar, type);
  }
  if (const auto* number = std::get_if<RealNumber>(&scalar); number && isHugeInteger(*number)) {
    return outOfRange(scalar, type);
  }
  return wrongKind(scalar, type, "an integer");
}

std::optional<double> toNumber(const Scalar& scalar) {
  if (const auto* number = std::get_if<std::int64_t>(&scalar)) {
    return static_cast<double>(*number);
  }
  if (const auto* number = std::get_if<std::uint64_t>(&scalar)) {
    return static_cast<double>(*number);
  }
  if (const auto* number = std::get_if<RealNumber>(&scalar)) {
    return number->value;
  }
  return std::nullopt;
}

Result<EntryValue> toFloating(const Scalar& scalar, EntryType type) {
  const auto number = toNumber(scalar);
  if (!number) {
    return wrongKind(scalar, type, "a number");
  }
  if (type == EntryType::float64) {
    return EntryValue(*number);
  }
  constexpr double largest = std::numeric_limits<float>::max();
  if (*number > largest || *number < -largest) {
    return outOfRange(scalar, type);
  }
  return EntryValue(static_cast<double>(static_cast<float>(*number)));
}

Result<EntryValue> toTextValue(const Scalar& scalar, EntryType type) {
  const auto* text = std::get_if<std::string>(&scalar);
  if (text == nullptr) {
    return wrongKind(scalar, type, "a string");
  }
  if (text->size() > ModelSrv::ModelValueText_Max) {
    return Error{"longer than " + std::to_string(ModelSrv::ModelValueText_Max) + " bytes"};
  }
  return EntryValue(*text);
}

Result<EntryValue> toBool(const Scalar& scalar, EntryType type) {
  if (const auto* flag = std::get_if<bool>(&scalar)) {
    return EntryValue(*flag);
  }
  return wrongKind(scalar, type, "true or false");
}

template <typename T>
std::string numberText(T number) {
  std::array<char, 64> buffer{};
  const auto written = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number);
  return {buffer.data(), written.ptr};
}

}  // namespace

std::string_view nameOf(EntryType type) {
  return entryTypeNames[static_cast<std::size_t>(type)];
}

bool isNumber(EntryType type) {
  return type != EntryType::node && type != EntryType::boolean && type != EntryType::text;
}

std::string toText(const EntryValue& value, EntryType type) {
  if (const auto* text = std::get_if<std::string>(&value)) {
    return *text;
  }
  if (const auto* flag = std::get_if<bool>(&value)) {
    return *flag ? "true" : "false";
  }
  if (const auto* number = std::get_if<double>(&value)) {
    return type == EntryType::float32 ? numberText(static_cast<float>(*number))
                                      : numberText(*number);
  }
  const auto* number = std::get_if<std::int64_t>(&value);
  return number != nullptr ? numberText(*number) : numberText(std::get<std::uint64_t>(value));
}

std::string toJson(const Scalar& scalar) {
  if (const auto* flag = std::get_if<bool>(&scalar)) {
    return *flag ? "true" : "false";
  }
  if (const auto* number = std::get_if<std::int64_t>(&scalar)) {
    return std::to_string(*number);
  }
  if (const auto* number = std::get_if<std::uint64_t>(&scalar)) {
    return std::to_string(*number);
  }
  if (const auto* number = std::get_if<RealNumber>(&scalar)) {
    return shortened(number->text);
  }
  if (const auto* text = std::get_if<std::string>(&scalar)) {
    return '"' + shortened(*text) + '"';
  }
  return "null";
}

std::optional<EntryType> findEntryType(std::string_view name) {
  const auto found = std::find(entryTypeNames.begin() + 1, entryTypeNames.end(), name);
  if (found == entryTypeNames.end()) {
    return std::nullopt;
  }
  return static_cast<EntryType>(found - entryTypeNames.begin());
}

Result<EntryValue> toEntryValue(const Scalar& scalar, EntryType type) {
  return visitValueType(type, [&]<typename T>() {
    if constexpr (std::is_same_v<T, bool>) {
      return toBool(scalar, type);
    } else if constexpr (std::is_integral_v<T>) {
      return toInteger<T>(scalar, type);
    } else if constexpr (std::is_floating_point_v<T>) {
      return toFloating(scalar, type);
    } else {
      return toTextValue(scalar, type);
    }
  });
}

}  // namespace modelsrvd
