#pragma once

#include <string>
#include <string_view>
#include <type_traits>

#include "modelsrv/model_part.h"

/// Conversion between values and their texts. Independent of parts.
namespace ModelSrv::internal {

/// The result type of parsing a `T`. A text is not copied.
template <typename T>
using Parsed = std::conditional_t<std::is_same_v<T, std::string>, std::string_view, T>;

/// Parses the whole of `text` as one value. Spaces and tabs around a number or bool are ignored.
/// A text may have the counted form (byte length, line feed, then exactly that many bytes); if
/// the length does not fit, the whole text is the value.
///
/// `ModelRes_BadText` if it is not a value of the type, `ModelRes_OutOfRange` if the type cannot
/// hold it, `ModelRes_TooLarge` if a text is too long; `value` is unchanged then.
template <typename T>
ModelRes parseValue(std::string_view text, Parsed<T>& value);

/// Appends the text of `value`, from which `parseValue` gets the same value. Floating point has
/// the shortest such form, or "inf" or "nan". A NaN other than the default one has its bits
/// in parentheses.
template <typename T>
void appendValue(std::string& out, const Parsed<T>& value);

/// Whether both values are equal, bit by bit.
template <typename T>
bool isSameValue(const Parsed<T>& present, const Parsed<T>& value);

/// The maximum size of the text in a store: a value of maximum size in the counted form.
inline constexpr std::size_t maxStoreText = ModelValueText_Max + sizeof("16777216");

/// Splits a text at its line feeds. The number of lines is one more than that of line feeds.
class LineSplitter {
 public:
  explicit LineSplitter(std::string_view text) : rest_(text) {}
  std::string_view next();

  /// The number of lines of `text`.
  static std::size_t count(std::string_view text);

 private:
  std::string_view rest_;
};

}  // namespace ModelSrv::internal
