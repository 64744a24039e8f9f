#include "modelsrv/source/requests.h"

namespace ModelSrv::internal {

namespace {

bool hasIndex(Operation operation) {
  return operation >= Operation::save;
}

bool readChain(EvtSrv::internal::PayloadReader& payload, std::vector<ModelPartId>& chain) {
  chain.clear();
  const std::size_t depth = payload.u16();
  if (depth > ModelDepth_Max || depth * sizeof(ModelPartId) > payload.left()) {
    return false;
  }
  for (std::size_t level = 0; level < depth; ++level) {
    chain.push_back(payload.u16());
  }
  return true;
}

}  // namespace

void encodeRequest(const RequestView& request, std::vector<std::uint8_t>& payload) {
  EvtSrv::internal::PayloadWriter writer(payload);
  writer.u16(static_cast<std::uint16_t>(request.chain.size()));
  writer.u16s(request.chain);
  if (hasIndex(request.operation)) {
    writer.u16(request.index);
  }
  if (request.operation == Operation::load) {
    writer.u8(request.flag ? 1 : 0);
    writer.bytes(request.text);
  }
}

bool decodeRequest(std::uint16_t operation, EvtSrv::internal::PayloadReader& payload,
                   Request& request) {
  if (operation < static_cast<std::uint16_t>(Operation::childIds) ||
      operation > static_cast<std::uint16_t>(Operation::prefetch)) {
    return false;
  }
  request.operation = static_cast<Operation>(operation);
  request.index = ModelPartIndex_All;
  request.flag = false;
  request.text = {};
  if (!readChain(payload, request.chain)) {
    return false;
  }
  if (hasIndex(request.operation)) {
    request.index = payload.u16();
  }
  if (request.operation == Operation::load) {
    const std::uint8_t flag = payload.u8();
    if (flag > 1) {
      return false;
    }
    request.flag = flag == 1;
    request.text = payload.rest();
  }
  return payload.ok() && payload.left() == 0;
}

}  // namespace ModelSrv::internal
