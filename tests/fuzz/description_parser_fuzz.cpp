#include "servers/description_parser.h"
#include "tests/fuzz/fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzInput input(data, size);
  (void)modelsrvd::parseTreeDescription(input.restText());
  return 0;
}
