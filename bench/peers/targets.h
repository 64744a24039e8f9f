#pragma once

#include <list>
#include <vector>

#include "bench/peers/table.h"

namespace bench::peers {

/// What ought to hold of this system beside the others, judged by the medians of
/// `works`.
std::vector<Target> judge(const std::list<Work>& works);

}  // namespace bench::peers
