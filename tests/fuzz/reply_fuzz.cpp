#include <string>
#include <vector>

#include "modelsrv/source/replies.h"
#include "modelsrv/source/update_holder.h"
#include "tests/fuzz/fuzz_input.h"

using EvtSrv::internal::ByteOrder;
using EvtSrv::internal::PayloadReader;
namespace replies = ModelSrv::internal;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzInput input(data, size);
  const auto order = (input.byte() & 1U) == 0 ? ByteOrder::leastFirst : ByteOrder::mostFirst;
  const auto payload = input.rest();
  const PayloadReader reader(payload, order);

  std::vector<ModelSrv::ModelPartId> ids{7};
  if (replies::decodeIds(reader, ids)) {
    require(payload.size() == 2 + 2 * ids.size());
  } else {
    require(ids.size() == 1 && ids[0] == 7);
  }
  std::vector<std::string> names{"kept"};
  if (replies::decodeNames(reader, names)) {
    std::size_t expected = 2;
    for (const std::string& name : names) {
      expected += 2 + name.size();
    }
    require(payload.size() == expected);
  } else {
    require(names.size() == 1 && names[0] == "kept");
  }
  std::uint16_t sum = 0;
  require(replies::decodeSum(reader, sum) == (payload.size() == 2));

  // An update reads the same from its frame and from its holder.
  replies::Update fromFrame;
  replies::Update fromHolder;
  const bool sound = replies::decodeUpdate(reader, fromFrame);
  if (sound) {
    require(replies::readUpdate(replies::makeHolder(payload, order), fromHolder));
    require(fromFrame.chain == fromHolder.chain && fromFrame.index == fromHolder.index);
  }
  return 0;
}
