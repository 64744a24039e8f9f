#include "modelsrv/source/requests.h"

#include <cstring>

#include "modelsrv/source/part_access.h"

namespace ModelSrv::internal {

namespace {

constexpr Operation allOperations[] = {
#define MODELSRV_OPERATION(operation, number, fields) Operation::operation,
    MODELSRV_OPERATIONS(MODELSRV_OPERATION)
#undef MODELSRV_OPERATION
};

constexpr unsigned fieldsByPosition[] = {
#define MODELSRV_FIELDS(operation, number, fields) fields,
    MODELSRV_OPERATIONS(MODELSRV_FIELDS)
#undef MODELSRV_FIELDS
};

constexpr bool isNumberedByPosition() {
  for (std::size_t i = 0; i < operationCount; ++i) {
    if (positionOf(allOperations[i]) != i) {
      return false;
    }
  }
  return true;
}
static_assert(isNumberedByPosition());

}  // namespace

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

std::size_t chainLength(const ModelPart& part) {
  std::size_t length = 0;
  for (const ModelPart* at = PartAccess::parent(part); at != nullptr;
       at = PartAccess::parent(*at)) {
    ++length;
  }
  return length;
}

void appendChain(const ModelPart& part, std::vector<std::uint8_t>& payload) {
  std::size_t left = chainLength(part);
  payload.resize(payload.size() + left * sizeof(ModelPartId));
  std::uint8_t* end = payload.data() + payload.size();
  for (const ModelPart* at = &part; left > 0; --left, at = PartAccess::parent(*at)) {
    const ModelPartId id = at->id();
    end -= sizeof(id);
    std::memcpy(end, &id, sizeof(id));
  }
}

void encodeRequest(const RequestView& request, std::vector<std::uint8_t>& payload) {
  const unsigned fields = fieldsByPosition[positionOf(request.operation)];
  EvtSrv::internal::PayloadWriter writer(payload);
  writer.u16(static_cast<std::uint16_t>(request.chain.size()));
  writer.u16s(request.chain);
  if ((fields & numberField) != 0) {
    writer.u32(request.number);
  }
  if ((fields & indexField) != 0) {
    writer.u16(request.index);
  }
  if ((fields & flagField) != 0) {
    writer.u8(request.flag ? 1 : 0);
  }
  if ((fields & watchFields) != 0) {
    writer.u8(request.watchFlags);
    writer.u32(request.period);
  }
  if ((fields & positionField) != 0) {
    writer.u8(request.continues ? 1 : 0);
    if (request.continues) {
      writer.u16(static_cast<std::uint16_t>(request.position.size()));
      writer.u16s(request.position);
    }
  }
  if ((fields & textField) != 0) {
    writer.bytes(request.text);
  }
}

bool decodeRequest(std::uint16_t operation, EvtSrv::internal::PayloadReader& payload,
                   Request& request) {
  if (operation == 0 || operation > operationCount) {
    return false;
  }
  request.operation = static_cast<Operation>(operation);
  const unsigned fields = fieldsByPosition[positionOf(request.operation)];
  request.index = ModelPartIndex_All;
  request.flag = false;
  request.text = {};
  if (!readChain(payload, request.chain)) {
    return false;
  }
  if ((fields & numberField) != 0) {
    request.number = payload.u32();
  }
  if ((fields & indexField) != 0) {
    request.index = payload.u16();
  }
  if ((fields & flagField) != 0) {
    const std::uint8_t flag = payload.u8();
    if (flag > 1) {
      return false;
    }
    request.flag = flag == 1;
  }
  if ((fields & watchFields) != 0) {
    request.watchFlags = payload.u8();
    request.period = payload.u32();
    if (request.watchFlags > (watchSubtree | watchMayBeAbsent)) {
      return false;
    }
  }
  if ((fields & positionField) != 0) {
    const std::uint8_t continues = payload.u8();
    request.continues = continues == 1;
    if (continues > 1 || (request.continues && !readChain(payload, request.position))) {
      return false;
    }
  }
  if ((fields & textField) != 0) {
    request.text = payload.rest();
  }
  return payload.ok() && payload.left() == 0;
}

}  // namespace ModelSrv::internal
