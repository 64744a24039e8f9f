#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "modelsrv/model_part.h"
#include "modelsrv/value_types.h"

namespace ModelSrv {

/// A check that a server runs on a client's store before the store is applied. `value` is the
/// new value; `index` is the element, or `ModelPartIndex_All` for a single value. When a client
/// stores a whole array, the check runs once for each element before any of them changes.
///
/// Any result but `ModelRes_Success` rejects the store and is returned to the client. The
/// check is called with the client mutex held, on the thread that dispatches. It may set any
/// part. It must not throw, and it must not destroy the part that it belongs to.
template <typename T>
using StoreCheck = std::function<ModelRes(const T& value, ModelPartIndex index)>;

/// The same, and the check may set `reason`, which is empty: one line of UTF-8 that says why the
/// store is refused, such as "setpoint 99 is not within 5 to 30". The client gets at most
/// `ModelReason_Max` bytes of it, with "?" for control characters.
template <typename T>
using StoreCheckWithReason =
    std::function<ModelRes(const T& value, ModelPartIndex index, std::string& reason)>;

/// Reads the value of a part that does not hold it itself, such as a sensor's, for one request. Any
/// result but `ModelRes_Success` is returned to the client; a result of the connection becomes
/// `ModelRes_Unreachable`. Called with the client mutex held, on the thread that dispatches, so it
/// must return soon. It must not throw, and it must not add, remove or destroy parts.
template <typename T>
using ValueGetter = std::function<ModelRes(T& value)>;

namespace internal {

template <typename T>
struct ValueHooks {
  StoreCheckWithReason<T> check;
  ValueGetter<T> getter;
};

/// A text that a part holds: in memory of its own, or if a client has stored a large one, in the
/// memory that received it.
class HeldText {
 public:
  explicit HeldText(std::string text) : text_(std::move(text)) {}

  [[nodiscard]] std::string_view view() const { return large_ ? large_->text : text_; }
  void set(std::string text) {
    text_ = std::move(text);
    large_ = nullptr;
  }
  /// May throw `std::bad_alloc`; the text is the same then.
  void store(std::string_view text);

 private:
  struct Large {
    std::unique_ptr<std::uint8_t[]> memory;
    std::string_view text;
  };

  std::string text_;
  std::unique_ptr<Large> large_;  ///< null if `text_` is the text
};

template <typename T>
using Held = std::conditional_t<std::is_same_v<T, std::string>, HeldText, T>;

}  // namespace internal

/// A part that holds one value. `T` is one of `ValueTypes`; a text (`std::string`) holds any
/// bytes, at most `ModelValueText_Max`.
///
/// Threads: any. Reading and setting lock the client mutex of the root's manager if the part
/// is in the tree of a root. A new value notifies the part's subscribers. A value equal to the
/// present one changes nothing and notifies no one; floating-point values are compared bit by bit.
template <typename T>
class KRV_EXPORT ValuePart final : public ModelPart {
  static_assert(isValueType<T>);

 public:
  /// A text longer than `ModelValueText_Max` is truncated.
  ValuePart(ModelPartId id, std::string_view name, T initial = {},
            ModelPartStatus status = ModelPartStatus_ReadWrite);
  ~ValuePart() override;

  [[nodiscard]] T value() const;

  /// Sets the value from the server's side: neither the part's access nor the store check
  /// applies. `ModelRes_TooLarge` for a text above the limit.
  ModelRes setValue(T value);

  /// Replaces the check of clients' stores. An empty function accepts every store.
  void setStoreCheck(StoreCheck<T> check);
  void setStoreCheckWithReason(StoreCheckWithReason<T> check);

  /// Lets clients read what `getter` returns, and cache none of it; an empty function goes back to
  /// the value that the part holds. While there is a getter, a client's store ends with the store
  /// check, which applies the value and calls `notifyChange`.
  void setGetter(ValueGetter<T> getter);

  /// Removes the store check and the getter. Unlike an empty function in place of one of them, that
  /// allocates nothing.
  void removeHooks();

  /// Notifies the subscribers that the getter's value has changed.
  void notifyChange();

 protected:
  [[nodiscard]] bool isCacheable() const override;
  ModelRes appendText(std::string& out, ModelPartIndex index) const override;
  ModelRes storeText(std::string_view text, bool flag, ModelPartIndex index,
                     bool fromClient) override;
  ModelRes storeFromClient(std::string_view text, bool flag, ModelPartIndex index,
                           std::string& reason) override;
  [[nodiscard]] std::string_view typeName() const override;
  [[nodiscard]] ModelRes checkLimits(const PartAttributes& attributes) const override;

 private:
  void setHooks(internal::ValueHooks<T> hooks);
  [[nodiscard]] bool hasGetter() const { return hooks_ != nullptr && hooks_->getter; }
  /// `reason` is null for the server's own store.
  ModelRes storeOne(std::string_view text, bool flag, ModelPartIndex index, std::string* reason);

  // Guarded by the client mutex.
  internal::Held<T> value_;
  std::shared_ptr<const internal::ValueHooks<T>> hooks_;  ///< null if there are none
};

/// A part that holds an array of 1 to 65,534 values, which may have names. The number of
/// elements is fixed at construction. Everything else is as for `ValuePart`.
template <typename T>
class KRV_EXPORT ArrayPart final : public ModelPart {
  static_assert(isValueType<T>);

 public:
  /// `names` must be empty or as long as `initial`. Otherwise it is truncated, or filled up
  /// with empty names. If `initial` is empty the array has one default value; if it is too
  /// long it is truncated.
  ArrayPart(ModelPartId id, std::string_view name, std::vector<T> initial,
            std::vector<std::string> names = {},
            ModelPartStatus status = ModelPartStatus_ReadWrite);
  ~ArrayPart() override;

  [[nodiscard]] std::vector<T> values() const;
  /// A default value if there is no such element.
  [[nodiscard]] T value(ModelPartIndex index) const;

  /// `ModelRes_NoSuchIndex` if there is no such element.
  ModelRes setValue(ModelPartIndex index, T value);
  /// Sets all elements and sends one update for all that changed. `ModelRes_BadArgument` if
  /// the number of values is not the number of elements.
  ModelRes setValues(const std::vector<T>& values);

  void setStoreCheck(StoreCheck<T> check);
  void setStoreCheckWithReason(StoreCheckWithReason<T> check);

 protected:
  [[nodiscard]] bool isCacheable() const override { return true; }
  [[nodiscard]] unsigned elementCount() const override;
  [[nodiscard]] const std::vector<std::string>& elementNames() const override;
  ModelRes appendText(std::string& out, ModelPartIndex index) const override;
  ModelRes storeText(std::string_view text, bool flag, ModelPartIndex index,
                     bool fromClient) override;
  ModelRes storeFromClient(std::string_view text, bool flag, ModelPartIndex index,
                           std::string& reason) override;
  [[nodiscard]] std::string_view typeName() const override;
  [[nodiscard]] ModelRes checkLimits(const PartAttributes& attributes) const override;

 private:
  /// `reason` is null for the server's own store.
  ModelRes storeElements(std::string_view text, bool flag, ModelPartIndex index,
                         std::string* reason);
  ModelRes checkElements(std::string_view text, std::size_t first, std::size_t count,
                         std::string* reason);
  void reserveForAll(std::string_view text, std::size_t first, std::size_t count);

  // Guarded by the client mutex.
  std::vector<T> values_;
  std::shared_ptr<const StoreCheckWithReason<T>> check_;

  // Constant after construction.
  std::vector<std::string> names_;
};

}  // namespace ModelSrv
