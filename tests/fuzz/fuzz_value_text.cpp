/// The texts of values, for every type.
///
/// Input: the text. What reads as a value is written and read again to the same
/// bits; the integer types agree about the same text; a text that is refused
/// leaves the value alone. The first bytes also serve as the bits of floating-point
/// numbers, each of which has a text that reads back.
///
/// Corpus: `integer`, `negative`, `beyond_int64`, `real`, `beyond_double`, `nan`,
/// `signalling_nan`, `bool`, `counted_text`, `miscounted_text`, `lines`.

#include <bit>
#include <cstring>
#include <string>
#include <type_traits>

#include "modelsrv/source/value_text.h"
#include "modelsrv/value_types.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using namespace ModelSrv;
using namespace ModelSrv::internal;
using fuzz::require;

template <typename T>
std::string written(const T& value) {
  std::string text;
  appendValue<T>(text, value);
  return text;
}

template <typename T>
void checkReadsBack(const T& value) {
  const std::string text = written<T>(value);
  T again{};
  require(parseValue<T>(text, again) == ModelRes_Success, "what is written reads");
  require(isSameValue<T>(value, again), "it reads to the same bits");
  require(written<T>(again) == text, "and is written the same again");
}

template <typename T>
ModelRes checkNumber(std::string_view text) {
  constexpr auto untouched = static_cast<T>(1);
  T value = untouched;
  const ModelRes result = parseValue<T>(text, value);
  if (result == ModelRes_Success) {
    checkReadsBack<T>(value);
    std::string padded = " \t";
    padded.append(text).append("\t ");
    T again{};
    require(parseValue<T>(padded, again) == ModelRes_Success && isSameValue<T>(value, again),
            "blanks around a number do not matter");
  } else {
    require(result == ModelRes_BadText || result == ModelRes_OutOfRange,
            "a number is refused as no number or as out of range");
    require(value == untouched, "a refused text leaves the value alone");
  }
  return result;
}

template <typename Narrow, typename Wide>
void checkAgree(std::string_view text) {
  const ModelRes narrow = checkNumber<Narrow>(text);
  const ModelRes wide = checkNumber<Wide>(text);
  require((narrow == ModelRes_BadText) == (wide == ModelRes_BadText),
          "integers of all sizes agree on what is a number");
  if (narrow == ModelRes_Success) {
    Narrow small{};
    Wide large{};
    require(parseValue<Narrow>(text, small) == ModelRes_Success &&
                parseValue<Wide>(text, large) == ModelRes_Success &&
                static_cast<Wide>(small) == large,
            "a wider integer reads the same number");
  }
}

void checkText(std::string_view text) {
  constexpr std::string_view untouched = "untouched";
  std::string_view value = untouched;
  if (parseValue<std::string>(text, value) != ModelRes_Success) {
    require(value == untouched, "a refused text leaves the value alone");
    return;
  }
  require(text.ends_with(value), "a text is the end of what was given");
  require(written<std::string>(std::string(value)) == value, "a text is written as it stands");
  const std::string counted = std::to_string(value.size()) + '\n' + std::string(value);
  std::string_view again;
  require(parseValue<std::string>(counted, again) == ModelRes_Success && again == value,
          "the counted form of a text is that text");
}

void checkLines(std::string_view text) {
  const std::size_t count = LineSplitter::count(text);
  LineSplitter lines(text);
  std::string joined(lines.next());
  for (std::size_t i = 1; i < count; ++i) {
    joined.append(1, '\n').append(lines.next());
  }
  require(joined == text, "the lines of a text make it up");
}

template <typename T>
void checkBits(std::string_view bytes) {
  T value{};
  if (bytes.size() >= sizeof value) {
    std::memcpy(&value, bytes.data(), sizeof value);
    checkReadsBack<T>(value);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::Input(data, size).restAsText();
  require(checkNumber<bool>(text) != ModelRes_OutOfRange, "a truth value has no range");
  IntegerTypes::forEach([text]<typename T>() {
    checkAgree<T, std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>>(text);
  });
  require((checkNumber<float>(text) == ModelRes_BadText) ==
              (checkNumber<double>(text) == ModelRes_BadText),
          "real numbers of both sizes agree on what is a number");
  checkText(text);
  checkLines(text);
  checkBits<float>(text);
  checkBits<double>(text);
  return 0;
}
