#include "model/update_decoding.h"

#include <vector>

#include "tests/fuzz/fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  EvtSrv::MemoryHolder holder(std::vector<std::uint8_t>(data, data + size), size == 0 ? 0 : 1);
  const auto chain = treescope::decodeUpdate(holder);
  require(chain.size() <= size / 2);
  return 0;
}
