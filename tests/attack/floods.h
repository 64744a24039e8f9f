#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// Clients that keep a server as busy as they can. Used by the tests and by the benchmark.
namespace attack {

/// The server that is flooded.
struct Target {
  std::string mailbox;  ///< its path
  pid_t process = 0;    ///< 0: unknown; no flood then sends it signals
  /// The id chain of the part that the other client reads, as in a request; empty: `readPart`.
  std::string read = {};
};

/// The part below the root that the other client reads, in every flooded tree.
inline constexpr std::uint16_t readPart = 1;

/// What a hostile client does, in a process of its own that is killed at the end. `act` is
/// given a server of `floodedTree()`. It never returns, except if the server refuses what it does.
struct Flood {
  std::string name;
  std::function<void(const Target& server)> act;
  std::function<void()> cleanUp = {};  ///< removes what it leaves, from the process that began it
};

/// The floods.
const std::vector<Flood>& floods();

/// The floods of a `ChangingServer`: changes of the structure, and what makes them expensive.
const std::vector<Flood>& structureFloods();

/// File systems that are mounted and unmounted, at some hundred places that all suggest the same
/// name: for the live tree of modelsrvd. The caller has mounts of its own, and a /tmp of its own
/// that it unmounts.
const Flood& mountFlood();

/// A modelsrvd with its live tree.
Target liveTarget(const std::string& port, pid_t process);

/// The description of the tree (modelsrvd(8)) that the floods are for: single values, arrays,
/// and nodes with many children.
std::string floodedTree();

}  // namespace attack
