#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "modelsrv/source/value_text.h"
#include "modelsrv/value_parts.h"

/// The rules for stores that single values and arrays have in common.
namespace ModelSrv::internal {

/// Success if a client may store in a part of that status.
inline ModelRes checkAccess(ModelPartStatus status, bool flag) {
  if (status == ModelPartStatus_ReadOnly) {
    return ModelRes_ReadOnly;
  }
  return status == ModelPartStatus_Protected && !flag ? ModelRes_Protected : ModelRes_Success;
}

/// Runs the server's check, which must stay alive meanwhile even if it replaces itself. A result
/// of the connection, which a check must not return, counts as a veto.
template <typename T>
ModelRes runCheck(const StoreCheckWithReason<T>& check, const Parsed<T>& value,
                  ModelPartIndex index, std::string& reason) {
  if (!check) {
    return ModelRes_Success;
  }
  const ModelRes result = check(T(value), index, reason);
  return result < ModelRes_NotConnected ? result : ModelRes_Vetoed;
}

template <typename T>
std::shared_ptr<const StoreCheckWithReason<T>> makeCheck(StoreCheckWithReason<T> check) {
  return check ? std::make_shared<const StoreCheckWithReason<T>>(std::move(check)) : nullptr;
}

/// The same check in the form that may give a reason, which it does not.
template <typename T>
StoreCheckWithReason<T> withoutReason(StoreCheck<T> check) {
  if (!check) {
    return {};
  }
  return [check = std::move(check)](const T& value, ModelPartIndex index, std::string&) {
    return check(value, index);
  };
}

/// The name of `T` in descriptions.
template <typename T>
constexpr std::string_view typeNameOf() {
#define MODELSRV_TYPE_NAME(id, Type, name) \
  if constexpr (std::is_same_v<T, Type>) { \
    return name;                           \
  }
  MODELSRV_VALUE_TYPES(MODELSRV_TYPE_NAME)
#undef MODELSRV_TYPE_NAME
}

/// Whether a value is larger than a part can hold.
template <typename T>
bool isTooLarge(const T& value) {
  if constexpr (std::is_same_v<T, std::string>) {
    return value.size() > ModelValueText_Max;
  } else {
    return false;
  }
}

/// Reserves memory so that `values[element] = value` does not throw.
template <typename T>
void reserveFor(std::vector<T>& values, std::size_t element, const Parsed<T>& value) {
  if constexpr (std::is_same_v<T, std::string>) {
    values[element].reserve(value.size());
  }
}

/// Truncates a text that is too large.
template <typename T>
T truncated(T value) {
  if constexpr (std::is_same_v<T, std::string>) {
    value.resize(std::min(value.size(), ModelValueText_Max));
  }
  return value;
}

}  // namespace ModelSrv::internal
