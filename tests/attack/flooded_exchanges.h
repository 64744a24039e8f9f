#pragma once

#include <chrono>
#include <vector>

#include "tests/attack/floods.h"

/// A client that only wants its turn while others keep its server busy. Used by the tests and by
/// the benchmark.
namespace attack {

/// How long exchanges took, each, in milliseconds and in the order in which they were made. Both
/// are empty if one has failed.
struct Durations {
  std::vector<double> elapsed;
  /// Without the time for which the client or the server was ready to run and had no processor:
  /// what is left is the server's doing, also on a machine with other work.
  std::vector<double> served;
};

/// Runs `flood`, unless it is null, and makes exchanges meanwhile, with a client that connected
/// before, for `time` after the flood has begun.
Durations exchangesUnder(const Flood* flood, const Target& server, std::chrono::milliseconds time);

}  // namespace attack
