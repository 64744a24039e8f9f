#include <string>

#include "modelsrv/source/value_text.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

/// What a text was read as is written so that it reads back to the same bits.
template <typename T>
void roundTrip(std::string_view text) {
  T value{};
  if (ModelSrv::internal::parseValue<T>(text, value) != ModelSrv::ModelRes_Success) {
    return;
  }
  std::string written;
  ModelSrv::internal::appendValue<T>(written, value);
  T again{};
  require(ModelSrv::internal::parseValue<T>(written, again) == ModelSrv::ModelRes_Success);
  require(ModelSrv::internal::isSameValue<T>(value, again));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzInput input(data, size);
  const std::string_view text = input.restText();
  roundTrip<bool>(text);
  roundTrip<std::int8_t>(text);
  roundTrip<std::uint8_t>(text);
  roundTrip<std::int16_t>(text);
  roundTrip<std::uint16_t>(text);
  roundTrip<std::int32_t>(text);
  roundTrip<std::uint32_t>(text);
  roundTrip<std::int64_t>(text);
  roundTrip<std::uint64_t>(text);
  roundTrip<float>(text);
  roundTrip<double>(text);
  std::string_view held;
  require(ModelSrv::internal::parseValue<std::string>(text, held) == ModelSrv::ModelRes_Success);
  require(text.ends_with(held));
  return 0;
}
