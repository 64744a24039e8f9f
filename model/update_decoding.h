#pragma once

#include "evtsrv/memory_holder.h"
#include "model/id_chain.h"

namespace treescope {

/// Which part an update event is about: the ids that are left in `data`, 16 bits
/// each, up to `ModelPartIndex_Void` or the end. The first byte that `data` holds
/// says their byte order: most significant byte first where it is 1, this
/// machine's own otherwise. Whatever the bytes are, the result is a chain: one of
/// no ids is the server's root, and a last odd byte is no id. Moves the read
/// position; knows nothing else, so any thread.
[[nodiscard]] IdChain decodeUpdate(EvtSrv::MemoryHolder& data);

}  // namespace treescope
