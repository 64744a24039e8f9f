#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

/// Clients that keep a server as busy as they can, and one that only wants its turn. Used by
/// the tests and by the benchmark.
namespace attack {

/// What a hostile client does, in a process of its own that is killed at the end. `act` is
/// given the path of the mailbox of a server of `floodedTree()`. It never returns, except if
/// the server refuses what it does.
struct Flood {
  std::string name;
  std::function<void(const std::string& mailbox)> act;
};

/// The floods.
const std::vector<Flood>& floods();

/// The flood of a `ChangingServer`: changes of the structure, and what makes them expensive.
const Flood& structureFlood();

/// The description of the tree (modelsrvd(8)) that the floods are for: single values, arrays,
/// and nodes with many children.
std::string floodedTree();

/// How long exchanges took, each, in milliseconds and in the order in which they were made.
/// Empty if one has failed.
using Durations = std::vector<double>;

/// Runs `flood`, unless it is null, and makes exchanges meanwhile, with a client that connected
/// before, for `time` after the flood has begun.
Durations exchangesUnder(const Flood* flood, const std::string& mailbox,
                         std::chrono::milliseconds time);

}  // namespace attack
