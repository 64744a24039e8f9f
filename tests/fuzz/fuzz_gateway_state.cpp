/// States of devices.
///
/// Input: the message. What is accepted is encoded to a message that gives the same.
///
/// Corpus: `online`, `will`, `unknown_keys`, `nested`.

#include "gateway/wire/device_state.h"
#include "tests/fuzz/fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  if (const auto state = modelgate::decodeState(input.restAsText())) {
    fuzz::require(modelgate::decodeState(encodeState(*state)) == state,
                  "a state comes back as it was");
  }
  return 0;
}
