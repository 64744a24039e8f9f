#include "modelsrv/source/replies.h"

#include <cstring>
#include <utility>

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
  const std::size_t newSize = payload_.size() - start_ + sizeof(std::uint16_t) + name.size();
  fits_ = fits_ && newSize <= EvtSrv::internal::maxPayload;
  if (!fits_) {
    return;
  }
  PayloadWriter writer(payload_);
  writer.u16(static_cast<std::uint16_t>(name.size()));
  writer.bytes(name);
  countOne();
}

namespace {

/// The code of `ModelRes_OutcomeUnknown`, whose own number is one of those that are never sent.
constexpr std::uint16_t outcomeUnknownCode = 19;

/// The smallest number that is never sent.
constexpr unsigned firstOfConnection = 64;

}  // namespace

std::uint16_t encodeResult(ModelRes result) {
  if (result == ModelRes_OutcomeUnknown) {
    return outcomeUnknownCode;
  }
  return static_cast<std::uint16_t>(result < firstOfConnection ? result : ModelRes_Unreachable);
}

ModelRes decodeStoreResult(std::uint16_t code) {
  return code == outcomeUnknownCode ? ModelRes_OutcomeUnknown : decodeResult(code);
}

ModelRes decodeResult(std::uint16_t code) {
  return code <= ModelRes_Denied ? static_cast<ModelRes>(code) : ModelRes_Protocol;
}

bool decodeIds(PayloadReader payload, std::vector<ModelPartId>& ids) {
  const std::size_t count = payload.u16();
  if (!payload.ok() || payload.left() != count * sizeof(ModelPartId)) {
    return false;
  }
  ids.resize(count);
  if (payload.order() == EvtSrv::internal::nativeOrder && count != 0) {
    const std::string_view bytes = payload.rest();
    std::memcpy(ids.data(), bytes.data(), bytes.size());
    return true;
  }
  for (ModelPartId& id : ids) {
    id = payload.u16();
  }
  return true;
}

bool readNames(PayloadReader& payload, std::vector<std::string>& names) {
  const std::size_t count = payload.u16();
  if (!payload.ok() || count * sizeof(std::uint16_t) > payload.left()) {
    return false;
  }
  names.clear();
  names.reserve(count);
  for (std::size_t i = 0; i < count && payload.ok(); ++i) {
    names.emplace_back(payload.text16());
  }
  return payload.ok();
}

bool decodeNames(PayloadReader payload, std::vector<std::string>& names) {
  std::vector<std::string> decoded;
  if (!readNames(payload, decoded) || payload.left() != 0) {
    return false;
  }
  names = std::move(decoded);
  return true;
}

bool decodeSum(PayloadReader payload, std::uint16_t& sum) {
  const std::uint16_t decoded = payload.u16();
  if (!payload.ok() || payload.left() != 0) {
    return false;
  }
  sum = decoded;
  return true;
}

}  // namespace ModelSrv::internal
