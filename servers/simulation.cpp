#include "servers/simulation.h"

#include <cmath>
#include <numbers>

namespace modelsrvd {

namespace {

/// Well mixed bits of `value` (the finalizer of SplitMix64).
std::uint64_t mixed(std::uint64_t value) {
  value += 0x9E3779B97F4A7C15U;
  value = (value ^ (value >> 30U)) * 0xBF58476D1CE4E5B9U;
  value = (value ^ (value >> 27U)) * 0x94D049BB133111EBU;
  return value ^ (value >> 31U);
}

/// The upper bits of `value` as a fraction from 0 to below 1.
double fraction(std::uint64_t value) {
  return static_cast<double>(value >> 11U) * 0x1p-53;
}

/// The time within the cycle, as a fraction of it.
double phase(const SimulationSpec& spec, std::uint64_t elapsed) {
  const std::uint64_t shift = spec.seed == 0 ? 0 : mixed(spec.seed) % spec.period;
  return static_cast<double>((elapsed + shift) % spec.period) / spec.period;
}

}  // namespace

double simulatedPosition(const SimulationSpec& spec, std::uint64_t elapsed) {
  // Within an interval the value is the same for every caller at any time.
  const std::uint64_t tick = elapsed / spec.interval;
  const double at = phase(spec, tick * spec.interval);
  switch (spec.shape) {
    case SimulationSpec::Shape::ramp:
      return at;
    case SimulationSpec::Shape::sine:
      return 0.5 + 0.5 * std::sin(2 * std::numbers::pi * at);
    case SimulationSpec::Shape::noise:
      return fraction(mixed(mixed(spec.seed) ^ tick));
    case SimulationSpec::Shape::steps:
      break;
  }
  constexpr std::uint64_t levels = 11;
  return static_cast<double>(simulatedStep(spec, elapsed, levels)) / (levels - 1);
}

std::uint64_t simulatedStep(const SimulationSpec& spec, std::uint64_t elapsed,
                            std::uint64_t count) {
  const std::uint64_t tick = elapsed / spec.interval;
  return static_cast<std::uint64_t>(phase(spec, tick * spec.interval) * static_cast<double>(count));
}

}  // namespace modelsrvd
