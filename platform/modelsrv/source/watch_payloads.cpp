#include "modelsrv/source/watch_payloads.h"

#include "modelsrv/source/replies.h"
#include "modelsrv/source/requests.h"

namespace ModelSrv::internal {

using EvtSrv::internal::PayloadReader;
using EvtSrv::internal::PayloadWriter;

namespace {

void writeTime(PayloadWriter& writer, std::int64_t timeNs) {
  writer.u32(static_cast<std::uint32_t>(static_cast<std::uint64_t>(timeNs) >> 32U));
  writer.u32(static_cast<std::uint32_t>(timeNs));
}

std::int64_t readTime(PayloadReader& payload) {
  const std::uint64_t high = payload.u32();
  return static_cast<std::int64_t>(high << 32U | payload.u32());
}

/// Reads an index and a result, which the server may send. False if they are none.
bool readIndexAndResult(PayloadReader& payload, WatchEvent& event) {
  event.index = payload.u16();
  event.result = decodeResult(payload.u16());
  return event.index != ModelPartIndex_Void;
}

bool decodeValue(PayloadReader& payload, DecodedWatchEvent& decoded) {
  WatchEvent& event = decoded.event;
  event.kind = WatchEvent::Kind::value;
  event.changes = payload.u32();
  event.timeNs = readTime(payload);
  if (!readIndexAndResult(payload, event) || !readChain(payload, decoded.chain)) {
    return false;
  }
  event.text = payload.rest();
  return true;
}

bool decodeAdded(PayloadReader& payload, DecodedWatchEvent& decoded) {
  WatchEvent& event = decoded.event;
  event.kind = WatchEvent::Kind::added;
  const std::uint16_t isNode = payload.u16();
  event.isNode = isNode != 0;
  event.timeNs = readTime(payload);
  if (isNode > 1 || !readIndexAndResult(payload, event) || !readChain(payload, decoded.chain)) {
    return false;
  }
  event.name = payload.bytes(payload.u16());
  event.text = payload.rest();
  decoded.hasValue = event.result != ModelRes_NoValue;
  return true;
}

bool decodeStructure(PayloadReader& payload, DecodedWatchEvent& decoded) {
  switch (static_cast<WatchStructure>(payload.u16())) {
    case WatchStructure::begin:
      decoded.event.kind = WatchEvent::Kind::begin;
      return true;
    case WatchStructure::complete:
      decoded.event.kind = WatchEvent::Kind::complete;
      return true;
    case WatchStructure::added:
      return decodeAdded(payload, decoded);
    case WatchStructure::removed:
      decoded.event.kind = WatchEvent::Kind::removed;
      return readChain(payload, decoded.chain);
  }
  return false;
}

}  // namespace

void encodeChainOf(const ModelPart& part, std::vector<std::uint8_t>& payload) {
  PayloadWriter(payload).u16(static_cast<std::uint16_t>(chainLength(part)));
  appendChain(part, payload);
}

void encodeWatchValue(WatchNumber number, const ModelPart& part, const WatchedValue& value,
                      std::vector<std::uint8_t>& payload) {
  PayloadWriter writer(payload);
  writer.u32(number);
  writer.u32(value.changes);
  writeTime(writer, value.timeNs);
  writer.u16(value.index);
  writer.u16(static_cast<std::uint16_t>(value.result));
  encodeChainOf(part, payload);
  writer.bytes(value.text);
}

void encodeWatchMark(WatchNumber number, WatchStructure kind, std::vector<std::uint8_t>& payload) {
  PayloadWriter writer(payload);
  writer.u32(number);
  writer.u16(static_cast<std::uint16_t>(kind));
}

void encodeWatchAdded(WatchNumber number, const ModelPart& part, bool isNode,
                      const WatchedValue& value, std::vector<std::uint8_t>& payload) {
  encodeWatchMark(number, WatchStructure::added, payload);
  PayloadWriter writer(payload);
  writer.u16(isNode ? 1 : 0);
  writeTime(writer, value.timeNs);
  writer.u16(value.index);
  writer.u16(static_cast<std::uint16_t>(value.result));
  encodeChainOf(part, payload);
  writer.u16(static_cast<std::uint16_t>(part.name().size()));
  writer.bytes(part.name());
  writer.bytes(value.text);
}

void encodeWatchRemoved(WatchNumber number, const std::vector<ModelPartId>& chain,
                        std::vector<std::uint8_t>& payload) {
  encodeWatchMark(number, WatchStructure::removed, payload);
  PayloadWriter writer(payload);
  writer.u16(static_cast<std::uint16_t>(chain.size()));
  writer.u16s(chain);
}

bool decodeWatchEvent(std::uint16_t type, PayloadReader payload, DecodedWatchEvent& decoded) {
  decoded.event = {};
  decoded.chain.clear();
  decoded.hasValue = false;
  decoded.number = payload.u32();
  const bool decodes =
      type == watchValueEvent ? decodeValue(payload, decoded) : decodeStructure(payload, decoded);
  decoded.event.chain = decoded.chain;
  return decodes && payload.ok() && payload.left() == 0;
}

}  // namespace ModelSrv::internal
