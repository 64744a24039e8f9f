/// The shell's decoder of update events.
///
/// Input: the bytes of an event, beginning with the byte-order flag. For any bytes the
/// chain equals that of a straightforward decoder, and the read position ends at the
/// end of the chain.
///
/// Corpus: `update`, `most_first`, `root`, `no_end`, `odd_byte`, `flag_only`.

#include <cstring>

#include "model/update_display.h"
#include "modelsrv/model_part.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using fuzz::require;
using Bytes = std::vector<std::uint8_t>;

std::uint16_t numberAt(const Bytes& bytes, std::size_t at) {
  std::uint16_t number = 0;
  std::memcpy(&number, bytes.data() + at, sizeof number);
  return bytes.front() == 1 ? static_cast<std::uint16_t>(bytes[at] * 256 + bytes[at + 1]) : number;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Bytes bytes(data, data + size);
  treescope::IdChain expected;
  std::size_t end = std::min<std::size_t>(1, size);
  while (end + sizeof(std::uint16_t) <= size) {
    const std::uint16_t number = numberAt(bytes, end);
    end += sizeof(std::uint16_t);
    if (number == ModelSrv::ModelPartIndex_Void) {
      break;
    }
    expected.push_back(number);
  }

  EvtSrv::MemoryHolder holder(bytes, 1);
  require(treescope::decodeUpdate(holder) == expected, "the chain holds the ids in order");
  require(holder.position() == end || holder.atEnd(), "the read position is after the chain");
  return 0;
}
