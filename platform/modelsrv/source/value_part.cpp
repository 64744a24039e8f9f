#include <utility>

#include "modelsrv/source/offered_text.h"
#include "modelsrv/source/store_limits.h"
#include "modelsrv/source/store_rules.h"
#include "modelsrv/source/tree_lock.h"
#include "modelsrv/source/value_text.h"
#include "modelsrv/value_parts.h"

namespace ModelSrv {

using internal::HeldText;
using internal::Parsed;
using internal::TreeLock;

void HeldText::store(std::string_view text) {
  if (text.size() >= internal::OfferedText::leastBytes) {
    auto large = std::make_unique<Large>();
    large->memory = internal::OfferedText::take(text);
    if (large->memory != nullptr) {
      large->text = text;
      large_ = std::move(large);
      std::string().swap(text_);
      return;
    }
  }
  text_ = text;
  large_ = nullptr;
}

namespace {

template <typename T>
const T& viewOf(const T& held) {
  return held;
}

std::string_view viewOf(const HeldText& held) {
  return held.view();
}

template <typename T>
void hold(T& held, T value) {
  held = value;
}

void hold(HeldText& held, std::string value) {
  held.set(std::move(value));
}

void hold(HeldText& held, std::string_view value) {
  held.store(value);
}

}  // namespace

template <typename T>
ValuePart<T>::ValuePart(ModelPartId id, std::string_view name, T initial, ModelPartStatus status)
    : ModelPart(id, name, status), value_(internal::truncated(std::move(initial))) {}

template <typename T>
ValuePart<T>::~ValuePart() {
  detach();
}

template <typename T>
T ValuePart<T>::value() const {
  const TreeLock lock(*this);
  return T(viewOf(value_));
}

template <typename T>
ModelRes ValuePart<T>::setValue(T value) {
  if (internal::isTooLarge(value)) {
    return ModelRes_TooLarge;
  }
  const TreeLock lock(*this);
  if (internal::isSameValue<T>(viewOf(value_), value)) {
    return ModelRes_Success;
  }
  invalidateValue();
  hold(value_, std::move(value));
  notifySubscribers(ModelPartIndex_All);
  return ModelRes_Success;
}

template <typename T>
void ValuePart<T>::setStoreCheck(StoreCheck<T> check) {
  setStoreCheckWithReason(internal::withoutReason<T>(std::move(check)));
}

template <typename T>
void ValuePart<T>::setStoreCheckWithReason(StoreCheckWithReason<T> check) {
  const TreeLock lock(*this);
  setHooks({std::move(check), hooks_ != nullptr ? hooks_->getter : nullptr});
}

template <typename T>
void ValuePart<T>::setGetter(ValueGetter<T> getter) {
  const TreeLock lock(*this);
  // What clients have cached so far they may not use any longer.
  invalidate();
  setHooks({hooks_ != nullptr ? hooks_->check : nullptr, std::move(getter)});
}

template <typename T>
void ValuePart<T>::setHooks(internal::ValueHooks<T> hooks) {
  const bool any = hooks.check || hooks.getter;
  hooks_ = any ? std::make_shared<const internal::ValueHooks<T>>(std::move(hooks)) : nullptr;
}

template <typename T>
void ValuePart<T>::removeHooks() {
  const TreeLock lock(*this);
  if (hasGetter()) {
    invalidate();
  }
  hooks_ = nullptr;
}

template <typename T>
void ValuePart<T>::notifyChange() {
  const TreeLock lock(*this);
  notifySubscribers(ModelPartIndex_All);
}

template <typename T>
bool ValuePart<T>::isCacheable() const {
  return !hasGetter();
}

template <typename T>
std::string_view ValuePart<T>::typeName() const {
  return internal::typeNameOf<T>();
}

template <typename T>
ModelRes ValuePart<T>::checkLimits(const PartAttributes& attributes) const {
  return internal::StoreLimits<T>::check(attributes);
}

template <typename T>
ModelRes ValuePart<T>::appendText(std::string& out, ModelPartIndex index) const {
  if (index != ModelPartIndex_All) {
    return ModelRes_NoSuchIndex;
  }
  if (!hasGetter()) {
    internal::appendValue<T>(out, viewOf(value_));
    return ModelRes_Success;
  }
  // Keeps the getter alive even if it replaces itself.
  const auto hooks = hooks_;
  T value{};
  const ModelRes result = hooks->getter(value);
  if (result == ModelRes_Success) {
    internal::appendValue<T>(out, value);
  }
  return result < ModelRes_NotConnected ? result : ModelRes_Unreachable;
}

template <typename T>
ModelRes ValuePart<T>::storeText(std::string_view text, bool flag, ModelPartIndex index,
                                 bool /*fromClient*/) {
  // `storeFromClient` takes what clients store.
  return storeOne(text, flag, index, nullptr);
}

template <typename T>
ModelRes ValuePart<T>::storeFromClient(std::string_view text, bool flag, ModelPartIndex index,
                                       std::string& reason) {
  return storeOne(text, flag, index, &reason);
}

template <typename T>
ModelRes ValuePart<T>::storeOne(std::string_view text, bool flag, ModelPartIndex index,
                                std::string* reason) {
  if (index != ModelPartIndex_All) {
    return ModelRes_NoSuchIndex;
  }
  ModelRes result = reason != nullptr ? internal::checkAccess(status(), flag) : ModelRes_Success;
  Parsed<T> parsed{};
  if (result == ModelRes_Success) {
    result = internal::parseValue<T>(text, parsed);
  }
  if (result == ModelRes_Success && reason != nullptr) {
    if (const auto* const limits = internal::limitsOf<T>(*this)) {
      result = limits->check(parsed, name(), index, *reason);
    }
  }
  const bool isApplied = hasGetter() && reason != nullptr;
  if (result == ModelRes_Success && reason != nullptr && hooks_ != nullptr) {
    const auto hooks = hooks_;
    result = internal::runCheck<T>(hooks->check, parsed, index, *reason);
  }
  if (result != ModelRes_Success || isApplied || internal::isSameValue<T>(viewOf(value_), parsed)) {
    return result;
  }
  invalidateValue();
  hold(value_, parsed);
  notifySubscribers(ModelPartIndex_All);
  return ModelRes_Success;
}

#define MODELSRV_INSTANTIATE(id, Type, name) template class ValuePart<Type>;
MODELSRV_VALUE_TYPES(MODELSRV_INSTANTIATE)
#undef MODELSRV_INSTANTIATE

}  // namespace ModelSrv
