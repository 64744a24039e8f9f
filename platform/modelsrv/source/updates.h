#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "evtsrv/memory_holder.h"
#include "evtsrv/source/frame.h"
#include "modelsrv/model_part.h"

/// Update events: encoding and decoding of their payloads, and the form in which a program
/// receives them. The layout is specified in platform/PROTOCOL.md, section 10.
namespace ModelSrv::internal {

struct Update {
  std::vector<ModelPartId> chain;
  ModelPartIndex index = ModelPartIndex_All;
};

/// Appends the payload of an update: the id chain of `part`, the end mark, the index.
void encodeUpdate(const ModelPart& part, ModelPartIndex index, std::vector<std::uint8_t>& payload);

/// Decodes a whole payload. If it is malformed the result is false and `update` is unchanged.
[[nodiscard]] bool decodeUpdate(EvtSrv::internal::PayloadReader payload, Update& update);

/// The holder in which a program receives the payload of an event: a flag of one byte, then
/// the 16-bit numbers. The flag is 1 if the most significant byte comes first; otherwise it is
/// 0 and the numbers are in this machine's own order. The position is after the flag.
EvtSrv::MemoryHolder makeHolder(std::span<const std::uint8_t> payload,
                                EvtSrv::internal::ByteOrder order);

/// Decodes an update from the start of its holder, whatever the holder's position. If it is
/// malformed the result is false and `update` is unchanged.
[[nodiscard]] bool readUpdate(const EvtSrv::MemoryHolder& holder, Update& update);

}  // namespace ModelSrv::internal
