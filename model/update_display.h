#pragma once

#include "evtsrv/memory_holder.h"
#include "model/id_chain.h"

namespace treescope {

class ModelClient;
class ScreenPrinter;

/// Decoding and displaying the update events of a server.

/// The id chain of the part that changed: the ids from the read position of `data`
/// on, 16 bits each, up to `ModelPartIndex_Void` or the end. The first byte of
/// `data` is the byte-order flag: 1 for most significant byte first, else this
/// machine's own order. Accepts any bytes: without ids the chain is the server's
/// root, and an odd last byte is ignored. Advances the read position. Any thread.
[[nodiscard]] IdChain decodeUpdate(EvtSrv::MemoryHolder& data);

/// Prints the path of the part at `chain`, then the listing of what is below it with
/// values, and flushes standard output. Prints nothing while the user leaves the
/// server (`ModelClient::Leaving`). Called by the event hook while connected, with the
/// client mutex held.
void printUpdate(ModelClient& client, const IdChain& chain, ScreenPrinter& printer);

}  // namespace treescope
