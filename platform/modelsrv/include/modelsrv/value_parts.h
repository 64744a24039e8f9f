#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "modelsrv/model_part.h"
#include "modelsrv/value_types.h"

namespace ModelSrv {

/// A server's look at a client's store before it is applied: `value` is what
/// would be stored, `index` the element or `ModelPartIndex_All` (an array: called
/// once per element of a whole store, before any is applied). Any result but
/// `ModelRes_Success` refuses the store and is what the client is told. Called
/// with the client mutex held, from the dispatching thread; may set any part, and
/// must not throw or destroy the part that it looks after.
template <typename T>
using StoreCheck = std::function<ModelRes(const T& value, ModelPartIndex index)>;

/// A part that holds one value.
///
/// Reading and setting take the client mutex of the root's manager where the part
/// hangs below a root, so any thread may. Setting another value than the one held
/// notifies the part's subscribers; setting the same one does nothing (floating
/// point is compared by its bits).
template <typename T>
class KRV_EXPORT ValuePart final : public ModelPart {
  static_assert(isValueType<T>);

 public:
  ValuePart(ModelPartId id, std::string name, T initial = {},
            ModelPartStatus status = ModelPartStatus_ReadWrite);
  ~ValuePart() override;

  [[nodiscard]] T value() const;

  /// The server's own store: neither access nor check is asked.
  /// `ModelRes_TooLarge` for a text above the limit.
  ModelRes setValue(T value);

  /// Replaces the check of clients' stores; an empty one lets all pass.
  void setStoreCheck(StoreCheck<T> check);

 protected:
  [[nodiscard]] bool isCacheable() const override { return true; }
  ModelRes appendText(std::string& out, ModelPartIndex index) const override;
  ModelRes storeText(std::string_view text, bool flag, ModelPartIndex index,
                     bool fromClient) override;

 private:
  T value_;
  std::shared_ptr<const StoreCheck<T>> check_;
};

/// A part that holds an array of 1 to 65,534 values, with or without names for
/// them. The number of elements is fixed at construction. Otherwise as
/// `ValuePart`.
template <typename T>
class KRV_EXPORT ArrayPart final : public ModelPart {
  static_assert(isValueType<T>);

 public:
  /// `names` is empty or as long as `initial`; where it is not, or `initial` has
  /// no or too many elements, what is too much is cut and what is missing is
  /// filled with empty names or one default value.
  ArrayPart(ModelPartId id, std::string name, std::vector<T> initial,
            std::vector<std::string> names = {},
            ModelPartStatus status = ModelPartStatus_ReadWrite);
  ~ArrayPart() override;

  [[nodiscard]] std::vector<T> values() const;
  /// A default value where there is no such element.
  [[nodiscard]] T value(ModelPartIndex index) const;

  /// `ModelRes_NoSuchIndex` where there is no such element.
  ModelRes setValue(ModelPartIndex index, T value);
  /// As many values as there are elements, else `ModelRes_BadArgument`. One
  /// update tells of all that changed.
  ModelRes setValues(const std::vector<T>& values);

  void setStoreCheck(StoreCheck<T> check);

 protected:
  [[nodiscard]] bool isCacheable() const override { return true; }
  [[nodiscard]] unsigned elementCount() const override;
  [[nodiscard]] const std::vector<std::string>& elementNames() const override;
  ModelRes appendText(std::string& out, ModelPartIndex index) const override;
  ModelRes storeText(std::string_view text, bool flag, ModelPartIndex index,
                     bool fromClient) override;

 private:
  void reserveForAll(std::string_view text, std::size_t first, std::size_t count);

  std::vector<T> values_;
  std::vector<std::string> names_;
  std::shared_ptr<const StoreCheck<T>> check_;
};

}  // namespace ModelSrv
