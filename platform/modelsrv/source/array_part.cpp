#include <utility>

#include "modelsrv/source/out_of_memory.h"
#include "modelsrv/source/store_limits.h"
#include "modelsrv/source/store_rules.h"
#include "modelsrv/source/tree_lock.h"
#include "modelsrv/source/value_text.h"
#include "modelsrv/value_parts.h"

namespace ModelSrv {

using internal::Parsed;
using internal::TreeLock;

namespace {

/// The elements that a store of the whole array changes, for one update.
class ChangedElements {
 public:
  void add(std::size_t element) {
    last_ = static_cast<ModelPartIndex>(element);
    ++count_;
  }
  [[nodiscard]] bool any() const { return count_ != 0; }
  /// The element if only one has changed, else all.
  [[nodiscard]] ModelPartIndex index() const { return count_ == 1 ? last_ : ModelPartIndex_All; }

 private:
  std::size_t count_ = 0;
  ModelPartIndex last_ = ModelPartIndex_All;
};

/// Splits a text into the texts of an array's elements. If there is one element it has the
/// whole text, line feeds included.
class ElementTexts {
 public:
  ElementTexts(std::string_view text, std::size_t elements)
      : text_(text), lines_(text), isSingle_(elements == 1) {}
  std::string_view next() { return isSingle_ ? text_ : lines_.next(); }

  static bool countFits(std::string_view text, std::size_t elements) {
    return elements == 1 || internal::LineSplitter::count(text) == elements;
  }

 private:
  std::string_view text_;
  internal::LineSplitter lines_;
  bool isSingle_;
};

}  // namespace

template <typename T>
ArrayPart<T>::ArrayPart(ModelPartId id, std::string_view name, std::vector<T> initial,
                        std::vector<std::string> names, ModelPartStatus status)
    : ModelPart(id, name, status), values_(std::move(initial)), names_(std::move(names)) {
  values_.resize(std::clamp<std::size_t>(values_.size(), 1, ModelPartElements_Max));
  for (std::size_t i = 0; i < values_.size(); ++i) {
    if (internal::isTooLarge<T>(values_[i])) {
      values_[i] = internal::truncated<T>(values_[i]);
    }
  }
  if (!names_.empty()) {
    names_.resize(values_.size());
  }
  for (std::string& elementName : names_) {
    elementName.resize(std::min(elementName.size(), ModelName_Max));
  }
}

template <typename T>
ArrayPart<T>::~ArrayPart() {
  detach();
}

template <typename T>
std::vector<T> ArrayPart<T>::values() const {
  const TreeLock lock(*this);
  return values_;
}

template <typename T>
T ArrayPart<T>::value(ModelPartIndex index) const {
  const TreeLock lock(*this);
  return index < values_.size() ? T(values_[index]) : T{};
}

template <typename T>
ModelRes ArrayPart<T>::setValue(ModelPartIndex index, T value) {
  if (internal::isTooLarge(value)) {
    return ModelRes_TooLarge;
  }
  const TreeLock lock(*this);
  if (index >= values_.size()) {
    return ModelRes_NoSuchIndex;
  }
  if (internal::isSameValue<T>(values_[index], value)) {
    return ModelRes_Success;
  }
  invalidateValue();
  values_[index] = std::move(value);
  notifySubscribers(index);
  return ModelRes_Success;
}

template <typename T>
ModelRes ArrayPart<T>::setValues(const std::vector<T>& values) {
  const TreeLock lock(*this);
  if (values.size() != values_.size()) {
    return ModelRes_BadArgument;
  }
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (internal::isTooLarge<T>(values[i])) {
      return ModelRes_TooLarge;
    }
  }
  return internal::withMemoryResult([&] {
    for (std::size_t i = 0; i < values.size(); ++i) {
      internal::reserveFor<T>(values_, i, values[i]);
    }
    ChangedElements changed;
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (!internal::isSameValue<T>(values_[i], values[i])) {
        invalidateValue();
        values_[i] = values[i];
        changed.add(i);
      }
    }
    if (changed.any()) {
      notifySubscribers(changed.index());
    }
    return ModelRes_Success;
  });
}

template <typename T>
void ArrayPart<T>::setStoreCheck(StoreCheck<T> check) {
  setStoreCheckWithReason(internal::withoutReason<T>(std::move(check)));
}

template <typename T>
void ArrayPart<T>::setStoreCheckWithReason(StoreCheckWithReason<T> check) {
  const TreeLock lock(*this);
  check_ = internal::makeCheck<T>(std::move(check));
}

template <typename T>
std::string_view ArrayPart<T>::typeName() const {
  return internal::typeNameOf<T>();
}

template <typename T>
ModelRes ArrayPart<T>::checkLimits(const PartAttributes& attributes) const {
  return internal::StoreLimits<T>::check(attributes);
}

template <typename T>
unsigned ArrayPart<T>::elementCount() const {
  return static_cast<unsigned>(values_.size());
}

template <typename T>
const std::vector<std::string>& ArrayPart<T>::elementNames() const {
  return names_;
}

template <typename T>
ModelRes ArrayPart<T>::appendText(std::string& out, ModelPartIndex index) const {
  if (index != ModelPartIndex_All) {
    if (index >= values_.size()) {
      return ModelRes_NoSuchIndex;
    }
    internal::appendValue<T>(out, values_[index]);
    return ModelRes_Success;
  }
  const std::size_t start = out.size();
  for (std::size_t i = 0; i < values_.size(); ++i) {
    if (i != 0) {
      out += '\n';
    }
    internal::appendValue<T>(out, values_[i]);
    if (out.size() - start > ModelValueText_Max) {
      out.resize(start);
      return ModelRes_TooLarge;
    }
  }
  return ModelRes_Success;
}

template <typename T>
ModelRes ArrayPart<T>::storeText(std::string_view text, bool flag, ModelPartIndex index,
                                 bool /*fromClient*/) {
  // `storeFromClient` takes what clients store.
  return storeElements(text, flag, index, nullptr);
}

template <typename T>
ModelRes ArrayPart<T>::storeFromClient(std::string_view text, bool flag, ModelPartIndex index,
                                       std::string& reason) {
  return storeElements(text, flag, index, &reason);
}

template <typename T>
ModelRes ArrayPart<T>::storeElements(std::string_view text, bool flag, ModelPartIndex index,
                                     std::string* reason) {
  const bool whole = index == ModelPartIndex_All;
  if (!whole && index >= values_.size()) {
    return ModelRes_NoSuchIndex;
  }
  if (const ModelRes access =
          reason != nullptr ? internal::checkAccess(status(), flag) : ModelRes_Success;
      access != ModelRes_Success) {
    return access;
  }
  const std::size_t first = whole ? 0 : index;
  const std::size_t count = whole ? values_.size() : 1;
  if (!ElementTexts::countFits(text, count)) {
    return ModelRes_BadText;
  }
  // All values are parsed and checked before any is stored. Parsing them again then is cheaper
  // than keeping a copy of all.
  if (const ModelRes result = checkElements(text, first, count, reason);
      result != ModelRes_Success) {
    return result;
  }
  reserveForAll(text, first, count);
  ChangedElements changed;
  ElementTexts stored(text, count);
  Parsed<T> parsed{};
  for (std::size_t i = first; i < first + count; ++i) {
    if (const ModelRes result = internal::parseValue<T>(stored.next(), parsed);
        result != ModelRes_Success) {
      return result;
    }
    if (!internal::isSameValue<T>(values_[i], parsed)) {
      invalidateValue();
      values_[i] = parsed;
      changed.add(i);
    }
  }
  if (changed.any()) {
    notifySubscribers(changed.index());
  }
  return ModelRes_Success;
}

template <typename T>
ModelRes ArrayPart<T>::checkElements(std::string_view text, std::size_t first, std::size_t count,
                                     std::string* reason) {
  Parsed<T> parsed{};
  // A pass of its own, because a store check may replace the attributes.
  if (const auto* const limits = reason != nullptr ? internal::limitsOf<T>(*this) : nullptr;
      limits != nullptr) {
    ElementTexts texts(text, count);
    for (std::size_t i = first; i < first + count; ++i) {
      ModelRes result = internal::parseValue<T>(texts.next(), parsed);
      if (result == ModelRes_Success) {
        result = limits->check(parsed, name(), static_cast<ModelPartIndex>(i), *reason);
      }
      if (result != ModelRes_Success) {
        return result;
      }
    }
  }
  ElementTexts texts(text, count);
  for (std::size_t i = first; i < first + count; ++i) {
    ModelRes result = internal::parseValue<T>(texts.next(), parsed);
    if (const auto check = check_;
        result == ModelRes_Success && reason != nullptr && check != nullptr) {
      result = internal::runCheck<T>(*check, parsed, static_cast<ModelPartIndex>(i), *reason);
    }
    if (result != ModelRes_Success) {
      return result;
    }
  }
  return ModelRes_Success;
}

/// Reserves memory for all elements, so that either all or none of them are stored.
template <typename T>
void ArrayPart<T>::reserveForAll(std::string_view text, std::size_t first, std::size_t count) {
  if constexpr (std::is_same_v<T, std::string>) {
    ElementTexts texts(text, count);
    for (std::size_t i = first; i < first + count; ++i) {
      internal::reserveFor<T>(values_, i, texts.next());
    }
  }
}

#define MODELSRV_INSTANTIATE(id, Type, name) template class ArrayPart<Type>;
MODELSRV_VALUE_TYPES(MODELSRV_INSTANTIATE)
#undef MODELSRV_INSTANTIATE

}  // namespace ModelSrv
