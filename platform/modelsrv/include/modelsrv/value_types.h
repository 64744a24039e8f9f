#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

/// The types of value that a part can hold. This is the only list of them: part classes, text
/// conversion, the servers' tree descriptions and the tests are generated from it.

/// Expands `ENTRY(id, Type, name)` for each integer type. `id` is an identifier, `name` a string
/// literal.
#define MODELSRV_INTEGER_TYPES(ENTRY)    \
  ENTRY(int8, std::int8_t, "int8")       \
  ENTRY(int16, std::int16_t, "int16")    \
  ENTRY(int32, std::int32_t, "int32")    \
  ENTRY(int64, std::int64_t, "int64")    \
  ENTRY(uint8, std::uint8_t, "uint8")    \
  ENTRY(uint16, std::uint16_t, "uint16") \
  ENTRY(uint32, std::uint32_t, "uint32") \
  ENTRY(uint64, std::uint64_t, "uint64")

/// The same for each type of value.
#define MODELSRV_VALUE_TYPES(ENTRY) \
  ENTRY(boolean, bool, "bool")      \
  MODELSRV_INTEGER_TYPES(ENTRY)     \
  ENTRY(float32, float, "float")    \
  ENTRY(float64, double, "double")  \
  ENTRY(text, std::string, "text")

namespace ModelSrv {

template <typename... T>
struct TypeList {
  /// `Target` with the listed types as its arguments.
  template <template <typename...> class Target>
  using into = Target<T...>;

  template <typename U>
  static constexpr bool contains = (std::is_same_v<U, T> || ...);

  /// Calls `visit.operator()<T>()` for each listed type, in order.
  template <typename Visit>
  static void forEach(Visit visit) {
    (visit.template operator()<T>(), ...);
  }
};

namespace internal {

/// Takes a leading `void`, which lets each entry of a list begin with a comma.
template <typename First, typename... T>
using TypeListAfter = TypeList<T...>;

}  // namespace internal

#define MODELSRV_COMMA_TYPE(id, Type, name) , Type
/// The integer types, in the order of `MODELSRV_INTEGER_TYPES`.
using IntegerTypes = internal::TypeListAfter<void MODELSRV_INTEGER_TYPES(MODELSRV_COMMA_TYPE)>;
/// The types of value, in the order of `MODELSRV_VALUE_TYPES`.
using ValueTypes = internal::TypeListAfter<void MODELSRV_VALUE_TYPES(MODELSRV_COMMA_TYPE)>;
#undef MODELSRV_COMMA_TYPE

/// Whether a part can hold a `T`.
template <typename T>
inline constexpr bool isValueType = ValueTypes::contains<T>;

}  // namespace ModelSrv
