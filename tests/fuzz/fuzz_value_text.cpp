/// Conversion between values and texts, for every type.
///
/// Input: the text. If it can be parsed, writing and parsing the value gives the same bits. The
/// integer types agree about the same text. A rejected text leaves the value unchanged. The first
/// bytes are also used as the bits of floating-point numbers.
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
  require(parseValue<T>(text, again) == ModelRes_Success, "a written text can be parsed");
  require(isSameValue<T>(value, again), "parsing it gives the same bits");
  require(written<T>(again) == text, "writing it again gives the same text");
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
            "spaces around a number are ignored");
  } else {
    require(result == ModelRes_BadText || result == ModelRes_OutOfRange,
            "a text is rejected as not a number or as out of range");
    require(value == untouched, "a rejected text leaves the value unchanged");
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
            "a wider integer has the same value");
  }
}

void checkText(std::string_view text) {
  constexpr std::string_view untouched = "untouched";
  std::string_view value = untouched;
  if (parseValue<std::string>(text, value) != ModelRes_Success) {
    require(value == untouched, "a rejected text leaves the value unchanged");
    return;
  }
  require(text.ends_with(value), "the value is the end of the text");
  require(written<std::string>(std::string(value)) == value, "a text is written unchanged");
  const std::string counted = std::to_string(value.size()) + '\n' + std::string(value);
  std::string_view again;
  require(parseValue<std::string>(counted, again) == ModelRes_Success && again == value,
          "the counted form gives the same value");
}

void checkLines(std::string_view text) {
  const std::size_t count = LineSplitter::count(text);
  LineSplitter lines(text);
  std::string joined(lines.next());
  for (std::size_t i = 1; i < count; ++i) {
    joined.append(1, '\n').append(lines.next());
  }
  require(joined == text, "the joined lines are the text");
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
  require(checkNumber<bool>(text) != ModelRes_OutOfRange, "a bool is never out of range");
  IntegerTypes::forEach([text]<typename T>() {
    checkAgree<T, std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>>(text);
  });
  require((checkNumber<float>(text) == ModelRes_BadText) ==
              (checkNumber<double>(text) == ModelRes_BadText),
          "floating-point numbers of both sizes agree on what is a number");
  checkText(text);
  checkLines(text);
  checkBits<float>(text);
  checkBits<double>(text);
  return 0;
}
