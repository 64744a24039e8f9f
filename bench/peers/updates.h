#pragma once

#include "bench/peers/table.h"
#include "bench/peers/whole_programs.h"

namespace bench::peers {

/// From a store at one client until another one's tool has shown it.
Work updateLatency(const Peers& peers);

/// How many updates a second get through to one subscriber.
Work answeredStores(const Peers& peers);
Work streams(const Peers& peers);

}  // namespace bench::peers
