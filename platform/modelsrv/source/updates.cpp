#include "modelsrv/source/updates.h"

#include <utility>

#include "modelsrv/source/requests.h"

namespace ModelSrv::internal {

using EvtSrv::internal::ByteOrder;
using EvtSrv::internal::PayloadReader;
using EvtSrv::internal::PayloadWriter;

namespace {

constexpr std::uint8_t mostFirstFlag = 1;

}  // namespace

void encodeUpdate(const ModelPart& part, ModelPartIndex index, std::vector<std::uint8_t>& payload) {
  appendChain(part, payload);
  PayloadWriter writer(payload);
  writer.u16(ModelPartIndex_Void);
  writer.u16(index);
}

bool decodeUpdate(PayloadReader payload, Update& update) {
  std::vector<ModelPartId> chain;
  while (true) {
    const ModelPartId id = payload.u16();
    if (!payload.ok() || chain.size() > ModelDepth_Max) {
      return false;
    }
    if (id == ModelPartIndex_Void) {
      break;
    }
    chain.push_back(id);
  }
  const ModelPartIndex index = payload.u16();
  if (!payload.ok() || payload.left() != 0 || chain.size() > ModelDepth_Max) {
    return false;
  }
  update.chain = std::move(chain);
  update.index = index;
  return true;
}

EvtSrv::MemoryHolder makeHolder(std::span<const std::uint8_t> payload, ByteOrder order) {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(payload.size() + 1);
  const bool mostFirst = order == ByteOrder::mostFirst;
  bytes.push_back(mostFirst ? mostFirstFlag : 0);
  if (mostFirst || order == EvtSrv::internal::nativeOrder) {
    bytes.insert(bytes.end(), payload.begin(), payload.end());
  } else {
    PayloadWriter writer(bytes);
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
