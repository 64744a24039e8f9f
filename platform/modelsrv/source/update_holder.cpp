#include "modelsrv/source/update_holder.h"

#include <utility>
#include <vector>

namespace ModelSrv::internal {

using EvtSrv::internal::ByteOrder;
using EvtSrv::internal::PayloadReader;

namespace {

constexpr std::uint8_t mostFirstFlag = 1;

}  // namespace

EvtSrv::MemoryHolder makeHolder(std::span<const std::uint8_t> payload, ByteOrder order) {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(payload.size() + 1);
  const bool mostFirst = order == ByteOrder::mostFirst;
  bytes.push_back(mostFirst ? mostFirstFlag : 0);
  if (mostFirst || order == EvtSrv::internal::nativeOrder) {
    bytes.insert(bytes.end(), payload.begin(), payload.end());
  } else {
    EvtSrv::internal::PayloadWriter writer(bytes);
    for (PayloadReader reader(payload, order); reader.left() >= sizeof(std::uint16_t);) {
      writer.u16(reader.u16());
    }
  }
  return EvtSrv::MemoryHolder(std::move(bytes), 1);
}

bool readUpdate(const EvtSrv::MemoryHolder& holder, Update& update) {
  if (holder.size() == 0) {
    return false;
  }
  const std::span<const std::uint8_t> bytes(holder.bytes(), holder.size());
  const ByteOrder order =
      bytes[0] == mostFirstFlag ? ByteOrder::mostFirst : EvtSrv::internal::nativeOrder;
  return decodeUpdate(PayloadReader(bytes.subspan(1), order), update);
}

}  // namespace ModelSrv::internal
