#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "modelsrv/source/value_text.h"
#include "modelsrv/value_parts.h"

/// What single values and arrays have in common when something is stored.
namespace ModelSrv::internal {

/// Whether a client may store in a part of that status.
inline ModelRes accessOf(ModelPartStatus status, bool flag) {
  if (status == ModelPartStatus_ReadOnly) {
    return ModelRes_ReadOnly;
  }
  return status == ModelPartStatus_Protected && !flag ? ModelRes_Protected : ModelRes_Success;
}

/// Asks the server's check, which stays alive meanwhile even where it replaces
/// itself. Results that are not a part's to give count as a veto.
template <typename T>
ModelRes askCheck(std::shared_ptr<const StoreCheck<T>> check, const Parsed<T>& value,
                  ModelPartIndex index) {
  if (check == nullptr) {
    return ModelRes_Success;
  }
  const ModelRes verdict = (*check)(T(value), index);
  return verdict < ModelRes_NotConnected ? verdict : ModelRes_Vetoed;
}

template <typename T>
std::shared_ptr<const StoreCheck<T>> makeCheck(StoreCheck<T> check) {
  return check ? std::make_shared<const StoreCheck<T>>(std::move(check)) : nullptr;
}

/// Whether a value is larger than a part may hold.
template <typename T>
bool isTooLarge(const T& value) {
  if constexpr (std::is_same_v<T, std::string>) {
    return value.size() > ModelValueText_Max;
  } else {
    return false;
  }
}

/// Has `held` take `value` later without a wish for memory.
template <typename T>
void reserveFor(std::vector<T>& held, std::size_t element, const Parsed<T>& value) {
  if constexpr (std::is_same_v<T, std::string>) {
    held[element].reserve(value.size());
  }
}

/// Cuts what a part may not hold.
template <typename T>
T fitted(T value) {
  if constexpr (std::is_same_v<T, std::string>) {
    value.resize(std::min(value.size(), ModelValueText_Max));
  }
  return value;
}

}  // namespace ModelSrv::internal
