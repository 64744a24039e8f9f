#pragma once

#include <cstdint>
#include <string>

#include "servers/entry_details.h"

namespace modelsrvd {

/// Values that are calculated from the time. Any thread; no system calls.

/// The position of a simulation in its range at `elapsed` milliseconds after its start: 0 to 1.
/// The same spec and time give the same position. A seed other than 0 shifts the cycle.
[[nodiscard]] double simulatedPosition(const SimulationSpec& spec, std::uint64_t elapsed);

/// The step of a simulation of shape `steps` with `count` steps a cycle, at least 1.
[[nodiscard]] std::uint64_t simulatedStep(const SimulationSpec& spec, std::uint64_t elapsed,
                                          std::uint64_t count);

}  // namespace modelsrvd
