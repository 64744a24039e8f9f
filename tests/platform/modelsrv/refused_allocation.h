#pragma once

namespace modelsrv_tests {

/// That none is refused.
constexpr int allAllocations = -1;

/// How many allocations of the calling thread succeed before one is refused, in a
/// program that this is linked into; below 0 once it was, and where all succeed.
int& allocationsLeft();

}  // namespace modelsrv_tests
