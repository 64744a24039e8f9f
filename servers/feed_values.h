#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>

#include "modelsrv/value_parts.h"
#include "servers/entry_details.h"
#include "servers/entry_values.h"
#include "servers/simulation.h"

/// The conversion between values of parts, texts of files and positions of simulations. No system
/// calls.
namespace modelsrvd {

/// The value text of `value`.
template <typename T>
std::string valueText(const T& value) {
  if constexpr (std::is_same_v<T, std::string>) {
    return value;
  } else {
    const ModelSrv::ValuePart<T> part(0, {}, value);
    std::ostringstream text;
    // `save` is not const for the sake of clients; of a value outside of a tree it cannot fail.
    static_cast<void>(
        const_cast<ModelSrv::ValuePart<T>&>(part).save(text, ModelSrv::ModelPartIndex_All));
    return text.str();
  }
}

/// Parses a value text as a store does; a text is taken as it stands.
template <typename T>
ModelSrv::ModelRes parseText(const std::string& text, T& value) {
  if constexpr (std::is_same_v<T, std::string>) {
    value = text;
    return ModelSrv::ModelRes_Success;
  } else {
    ModelSrv::ValuePart<T> part(0, {});
    std::istringstream stream(text);
    const ModelSrv::ModelRes result = part.load(stream, false, ModelSrv::ModelPartIndex_All);
    value = part.value();
    return result;
  }
}

template <typename T>
inline constexpr bool isScalable = std::is_arithmetic_v<T> && !std::is_same_v<T, bool>;

/// 1 / `scale` if that is a whole number, as with 0.001, else 0. To divide by it rounds once,
/// and gives 42.123 instead of 42.123000000000005.
inline double wholeInverse(double scale) {
  const double inverse = std::round(1 / scale);
  return std::abs(inverse) >= 2 && 1 / inverse == scale ? inverse : 0;
}

/// The number nearest to `number` that a `T` holds. `ModelRes_OutOfRange` if there is none.
template <typename T>
ModelSrv::ModelRes narrowNumber(double number, T& value) {
  if constexpr (std::is_floating_point_v<T>) {
    if (std::isfinite(number) && std::abs(number) > std::numeric_limits<T>::max()) {
      return ModelSrv::ModelRes_OutOfRange;
    }
    value = static_cast<T>(number);
  } else {
    const double rounded = std::round(number);
    if (!(rounded >= static_cast<double>(std::numeric_limits<T>::min()) &&
          rounded < std::ldexp(1.0, std::numeric_limits<T>::digits))) {
      return ModelSrv::ModelRes_OutOfRange;
    }
    value = static_cast<T>(rounded);
  }
  return ModelSrv::ModelRes_Success;
}

/// The value that a file with that text has.
template <typename T>
ModelSrv::ModelRes fromFileText(const std::string& text, const FileSpec& file, T& value) {
  if constexpr (isScalable<T>) {
    if (file.scale != 1 || file.offset != 0) {
      double raw = 0;
      const ModelSrv::ModelRes result = parseText(text, raw);
      if (result != ModelSrv::ModelRes_Success) {
        return result;
      }
      const double inverse = wholeInverse(file.scale);
      return narrowNumber((inverse != 0 ? raw / inverse : raw * file.scale) + file.offset, value);
    }
  }
  return parseText(text, value);
}

/// What to write to a file so that it has that value. A bool is 1 or 0.
template <typename T>
std::string toFileText(const T& value, const FileSpec& file) {
  if constexpr (std::is_same_v<T, bool>) {
    return value ? "1" : "0";
  } else if constexpr (isScalable<T>) {
    if (file.scale != 1 || file.offset != 0) {
      const double inverse = wholeInverse(file.scale);
      const double shifted = static_cast<double>(value) - file.offset;
      const double raw = inverse != 0 ? shifted * inverse : shifted / file.scale;
      // Most such files take whole numbers only, and the scale may have cost the last digit.
      constexpr double tolerance = 1e-6;
      constexpr double largestWhole = 9007199254740992.0;
      const double whole = std::round(raw);
      if (std::abs(whole) < largestWhole &&
          std::abs(raw - whole) <= tolerance * std::max(1.0, std::abs(raw))) {
        return valueText(static_cast<std::int64_t>(whole));
      }
      return valueText(raw);
    }
    return valueText(value);
  } else {
    return value;
  }
}

/// Whether `text`, made of `value` by `toFileText`, is read as a value of the type again. The
/// number in the file may be too large, or rounded up to what the type cannot hold.
template <typename T>
bool isReadBack(const T& value, const std::string& text, const FileSpec& file) {
  if constexpr (isScalable<T>) {
    T read{};
    if (fromFileText(text, file, read) != ModelSrv::ModelRes_Success) {
      return false;
    }
    if constexpr (std::is_floating_point_v<T>) {
      return std::isinf(read) == std::isinf(value);
    }
  }
  return true;
}

/// The simulated value `elapsed` milliseconds after the start. The range is that of the
/// attributes, by default 0 to 100.
template <typename T>
ModelSrv::ModelRes simulatedValue(const EntryDetails& details, std::uint64_t elapsed, T& value) {
  const ModelSrv::PartAttributes& attributes = details.attributes;
  const SimulationSpec& spec = *details.simulation;
  if (!attributes.choices.empty()) {
    // A step is less than the number of choices.
    const auto step =
        static_cast<std::size_t>(simulatedStep(spec, elapsed, attributes.choices.size()));
    return parseText(attributes.choices[step], value);
  }
  if constexpr (std::is_same_v<T, bool>) {
    value = simulatedStep(spec, elapsed, 2) != 0;
  } else if constexpr (isScalable<T>) {
    constexpr int defaultMaximum = 100;
    T minimum{};
    T maximum{defaultMaximum};
    if (!attributes.minimum.empty()) {
      static_cast<void>(parseText(attributes.minimum, minimum));
      static_cast<void>(parseText(attributes.maximum, maximum));
    }
    const auto low = static_cast<double>(minimum);
    const auto high = static_cast<double>(maximum);
    const double position = simulatedPosition(spec, elapsed);
    if (narrowNumber(low * (1 - position) + high * position, value) != ModelSrv::ModelRes_Success) {
      value = maximum;
    }
    value = std::clamp(value, minimum, maximum);
  }
  return ModelSrv::ModelRes_Success;
}

}  // namespace modelsrvd
