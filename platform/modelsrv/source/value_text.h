#pragma once

#include <string>
#include <string_view>
#include <type_traits>

#include "modelsrv/model_part.h"

/// The texts of values: characters in, values out, and back. Knows no part.
namespace ModelSrv::internal {

/// What a text is read into: a text stays where it is.
template <typename T>
using Parsed = std::conditional_t<std::is_same_v<T, std::string>, std::string_view, T>;

/// Reads one value from the whole of `text`. Numbers and bool may have blanks
/// (space, tab) around them; a text is taken in its counted form (byte length,
/// line feed, as many bytes) where that fits, else as it stands.
/// `ModelRes_BadText` where it is no value of the type, `ModelRes_OutOfRange`
/// where the type cannot hold it, `ModelRes_TooLarge` for too long a text; `value`
/// is left alone then.
template <typename T>
ModelRes parseValue(std::string_view text, Parsed<T>& value);

/// Appends the text that reads back to the same value; floating point in the
/// shortest form, "inf" and "nan" included. A NaN that is not the usual one has
/// its bits in brackets.
template <typename T>
void appendValue(std::string& out, const T& value);

/// Whether `held` is `value`, to the bit.
template <typename T>
bool isSameValue(const T& held, const Parsed<T>& value);

/// How many bytes of text a store may have: a value of the largest size in its
/// counted form.
inline constexpr std::size_t maxStoreText = ModelValueText_Max + sizeof("16777216");

/// Hands out the lines of a text, which its line feeds separate: one more than
/// there are line feeds.
class LineSplitter {
 public:
  explicit LineSplitter(std::string_view text) : rest_(text) {}
  std::string_view next();

  /// How many lines `text` has.
  static std::size_t count(std::string_view text);

 private:
  std::string_view rest_;
};

}  // namespace ModelSrv::internal
