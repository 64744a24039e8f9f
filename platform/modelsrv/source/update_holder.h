#pragma once

#include <cstdint>
#include <span>

#include "evtsrv/memory_holder.h"
#include "evtsrv/source/frame.h"
#include "modelsrv/source/replies.h"

/// The form in which an event reaches a program: a byte-order flag, then 16-bit
/// numbers.
namespace ModelSrv::internal {

/// An event's numbers behind their flag: 1 where the most significant byte comes
/// first, else 0, and they are in this machine's own order. Reading starts behind
/// the flag.
EvtSrv::MemoryHolder makeHolder(std::span<const std::uint8_t> payload,
                                EvtSrv::internal::ByteOrder order);

/// Reads an update from the start of its holder, wherever its position is.
[[nodiscard]] bool readUpdate(const EvtSrv::MemoryHolder& holder, Update& update);

}  // namespace ModelSrv::internal
