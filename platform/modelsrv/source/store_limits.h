#pragma once

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "modelsrv/part_description.h"
#include "modelsrv/source/part_access.h"
#include "modelsrv/source/value_text.h"

/// What the attributes of a part allow clients to store.
namespace ModelSrv::internal {

/// Whether a `T` can have a minimum and a maximum.
template <typename T>
inline constexpr bool hasLimits = std::is_arithmetic_v<T> && !std::is_same_v<T, bool>;

/// The limits and choices of a part, as values. The attributes outlive this object and do not
/// change meanwhile.
template <typename T>
class StoreLimits {
 public:
  /// `ModelRes_BadArgument` if `attributes` cannot be those of a part of type `T`.
  static ModelRes check(const PartAttributes& attributes) {
    const StoreLimits limits(attributes);
    const bool anyLimit = !attributes.minimum.empty() || !attributes.maximum.empty();
    if (!limits.isValid_ || (anyLimit && !hasLimits<T>)) {
      return ModelRes_BadArgument;
    }
    return limits.minimum_ && limits.maximum_ && *limits.maximum_ < *limits.minimum_
               ? ModelRes_BadArgument
               : ModelRes_Success;
  }

  explicit StoreLimits(const PartAttributes& attributes) : attributes_(attributes) {
    readLimit(attributes.minimum, minimum_);
    readLimit(attributes.maximum, maximum_);
    for (const std::string& choice : attributes.choices) {
      Parsed<T> value{};
      isValid_ = isValid_ && parse(choice, value);
      choices_.push_back(value);
    }
    // Not a number has no place in an order.
    if (isValid_) {
      std::sort(choices_.begin(), choices_.end());
    }
  }

  /// Whether a client may store `value`; if not, `reason` says why. `name` is the part's.
  ModelRes check(const Parsed<T>& value, std::string_view name, ModelPartIndex index,
                 std::string& reason) const {
    if ((minimum_ && !(value >= *minimum_)) || (maximum_ && !(value <= *maximum_))) {
      reason = start(value, name, index);
      if (minimum_ && maximum_) {
        reason += " is not within " + attributes_.minimum + " to " + attributes_.maximum;
      } else {
        reason += minimum_ ? " is not at least " + attributes_.minimum
                           : " is not at most " + attributes_.maximum;
      }
      return ModelRes_OutOfRange;
    }
    if (choices_.empty() ||
        (isOrdered(value) && std::binary_search(choices_.begin(), choices_.end(), value))) {
      return ModelRes_Success;
    }
    reason = start(value, name, index) + " is not one of ";
    for (std::size_t i = 0; i < attributes_.choices.size() && reason.size() < ModelReason_Max;
         ++i) {
      reason += (i == 0 ? "" : ", ") + attributes_.choices[i];
    }
    return ModelRes_Vetoed;
  }

 private:
  static bool parse(std::string_view text, Parsed<T>& value) {
    return parseValue<T>(text, value) == ModelRes_Success && isOrdered(value);
  }

  /// False for what is not a number.
  static bool isOrdered(const Parsed<T>& value) {
    if constexpr (std::is_floating_point_v<T>) {
      return !std::isnan(value);
    }
    return true;
  }

  void readLimit(const std::string& text, std::optional<Parsed<T>>& limit) {
    if (text.empty()) {
      return;
    }
    Parsed<T> value{};
    isValid_ = isValid_ && parse(text, value);
    limit = value;
  }

  /// The beginning of a reason: "name[index] value".
  static std::string start(const Parsed<T>& value, std::string_view name, ModelPartIndex index) {
    constexpr std::size_t maxShownBytes = 80;
    std::string line(name.substr(0, maxShownBytes));
    if (index != ModelPartIndex_All) {
      line += '[' + std::to_string(index) + ']';
    }
    line += line.empty() ? "" : " ";
    if constexpr (std::is_same_v<T, std::string>) {
      line += '"';
      line += value.substr(0, maxShownBytes);
      line += value.size() > maxShownBytes ? "...\"" : "\"";
    } else {
      appendValue<T>(line, value);
    }
    return line;
  }

  const PartAttributes& attributes_;
  std::optional<Parsed<T>> minimum_;
  std::optional<Parsed<T>> maximum_;
  std::vector<Parsed<T>> choices_;  ///< ascending
  bool isValid_ = true;
};

/// The limits and choices of a part of type `T`; null if it has no attributes. They are parsed
/// at the first call after `setAttributes`, and valid until the next one. Throws `std::bad_alloc`.
template <typename T>
const StoreLimits<T>* limitsOf(const ModelPart& part) {
  const StatedAttributes* const stated = PartAccess::attributes(part);
  if (stated == nullptr) {
    return nullptr;
  }
  if (stated->limits == nullptr) {
    stated->limits = std::make_shared<const StoreLimits<T>>(*stated);
  }
  return static_cast<const StoreLimits<T>*>(stated->limits.get());
}

}  // namespace ModelSrv::internal
