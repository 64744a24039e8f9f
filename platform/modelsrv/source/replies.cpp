#include "modelsrv/source/replies.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "modelsrv/model_node.h"
#include "modelsrv/source/part_access.h"

namespace ModelSrv::internal {

using EvtSrv::internal::PayloadReader;
using EvtSrv::internal::PayloadWriter;

CountedReply::CountedReply(std::vector<std::uint8_t>& payload)
    : payload_(payload), start_(payload.size()) {
  PayloadWriter(payload_).u16(0);
}

void CountedReply::countOne() {
  ++count_;
  std::memcpy(payload_.data() + start_, &count_, sizeof(count_));
}

void CountedReply::addId(ModelPartId id) {
  PayloadWriter(payload_).u16(id);
  countOne();
}

void CountedReply::addName(std::string_view name) {
  const std::size_t grown = payload_.size() - start_ + sizeof(std::uint16_t) + name.size();
  fits_ = fits_ && grown <= EvtSrv::internal::maxPayload;
  if (!fits_) {
    return;
  }
  PayloadWriter writer(payload_);
  writer.u16(static_cast<std::uint16_t>(name.size()));
  writer.bytes(name);
  countOne();
}

ModelRes decodeResult(std::uint16_t code) {
  return code <= ModelRes_BadArgument ? static_cast<ModelRes>(code) : ModelRes_Protocol;
}

bool decodeIds(PayloadReader payload, std::vector<ModelPartId>& ids) {
  const std::size_t count = payload.u16();
  if (!payload.ok() || payload.left() != count * sizeof(ModelPartId)) {
    return false;
  }
  ids.resize(count);
  for (ModelPartId& id : ids) {
    id = payload.u16();
  }
  return true;
}

bool decodeNames(PayloadReader payload, std::vector<std::string>& names) {
  const std::size_t count = payload.u16();
  if (!payload.ok() || count * sizeof(std::uint16_t) > payload.left()) {
    return false;
  }
  std::vector<std::string> read;
  read.reserve(count);
  for (std::size_t i = 0; i < count && payload.ok(); ++i) {
    const std::size_t length = payload.u16();
    read.emplace_back(payload.bytes(length));
  }
  if (!payload.ok() || payload.left() != 0) {
    return false;
  }
  names = std::move(read);
  return true;
}

bool decodeSum(PayloadReader payload, std::uint16_t& sum) {
  const std::uint16_t read = payload.u16();
  if (!payload.ok() || payload.left() != 0) {
    return false;
  }
  sum = read;
  return true;
}

void encodeUpdate(const ModelPart& part, ModelPartIndex index, std::vector<std::uint8_t>& payload) {
  std::size_t depth = 0;
  for (const ModelPart* at = &part; PartAccess::parent(*at) != nullptr;
       at = PartAccess::parent(*at)) {
    ++depth;
  }
  const std::size_t start = payload.size();
  payload.resize(start + depth * sizeof(ModelPartId));
  std::uint8_t* end = payload.data() + payload.size();
  for (const ModelPart* at = &part; depth > 0; --depth, at = PartAccess::parent(*at)) {
    const ModelPartId id = at->id();
    end -= sizeof(id);
    std::memcpy(end, &id, sizeof(id));
  }
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

}  // namespace ModelSrv::internal
