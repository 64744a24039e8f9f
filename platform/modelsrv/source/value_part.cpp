#include <utility>

#include "modelsrv/source/store_rules.h"
#include "modelsrv/source/tree_lock.h"
#include "modelsrv/source/value_text.h"
#include "modelsrv/value_parts.h"

namespace ModelSrv {

using internal::Parsed;
using internal::TreeLock;

template <typename T>
ValuePart<T>::ValuePart(ModelPartId id, std::string name, T initial, ModelPartStatus status)
    : ModelPart(id, std::move(name), status), value_(internal::truncated(std::move(initial))) {}

template <typename T>
ValuePart<T>::~ValuePart() {
  detach();
}

template <typename T>
T ValuePart<T>::value() const {
  const TreeLock lock(*this);
  return value_;
}

template <typename T>
ModelRes ValuePart<T>::setValue(T value) {
  if (internal::isTooLarge(value)) {
    return ModelRes_TooLarge;
  }
  const TreeLock lock(*this);
  if (internal::isSameValue<T>(value_, value)) {
    return ModelRes_Success;
  }
  invalidateValue();
  value_ = std::move(value);
  notifySubscribers(ModelPartIndex_All);
  return ModelRes_Success;
}

template <typename T>
void ValuePart<T>::setStoreCheck(StoreCheck<T> check) {
  const TreeLock lock(*this);
  check_ = internal::makeCheck<T>(std::move(check));
}

template <typename T>
ModelRes ValuePart<T>::appendText(std::string& out, ModelPartIndex index) const {
  if (index != ModelPartIndex_All) {
    return ModelRes_NoSuchIndex;
  }
  internal::appendValue<T>(out, value_);
  return ModelRes_Success;
}

template <typename T>
ModelRes ValuePart<T>::storeText(std::string_view text, bool flag, ModelPartIndex index,
                                 bool fromClient) {
  if (index != ModelPartIndex_All) {
    return ModelRes_NoSuchIndex;
  }
  ModelRes result = fromClient ? internal::checkAccess(status(), flag) : ModelRes_Success;
  Parsed<T> parsed{};
  if (result == ModelRes_Success) {
    result = internal::parseValue<T>(text, parsed);
  }
  if (result == ModelRes_Success && fromClient) {
    result = internal::runCheck<T>(check_, parsed, index);
  }
  if (result != ModelRes_Success || internal::isSameValue<T>(value_, parsed)) {
    return result;
  }
  invalidateValue();
  value_ = parsed;
  notifySubscribers(ModelPartIndex_All);
  return ModelRes_Success;
}

#define MODELSRV_INSTANTIATE(id, Type, name) template class ValuePart<Type>;
MODELSRV_VALUE_TYPES(MODELSRV_INSTANTIATE)
#undef MODELSRV_INSTANTIATE

}  // namespace ModelSrv
