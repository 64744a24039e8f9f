#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "gateway/exporter/sequence_table.h"
#include "gateway/exporter/tree_index.h"

namespace modelgate {

/// The leases of one server: who has requested batches of which subtree, and until when. Time comes
/// from outside. For one thread.
class Leases {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr std::chrono::seconds duration{60};
  /// The most leases of a server.
  static constexpr std::size_t maxLeases = 1024;

  /// Begins or renews the lease of `holder` for the part at `chain` and all below it. False if
  /// there are too many.
  [[nodiscard]] bool renew(const std::string& holder, std::vector<ModelSrv::ModelPartId> chain,
                           Clock::time_point now);

  /// Removes the leases that have ended. Whether there were any.
  bool expire(Clock::time_point now);

  /// When the next lease ends.
  [[nodiscard]] std::optional<Clock::time_point> deadline() const;

  [[nodiscard]] bool isEmpty() const { return leases_.empty(); }

  /// The parts that are covered, in ascending ranges that do not overlap. A lease of a part that
  /// is not in the tree covers nothing.
  [[nodiscard]] std::vector<PositionRange> ranges(const TreeIndex& index) const;

 private:
  using Key = std::pair<std::string, std::vector<ModelSrv::ModelPartId>>;
  std::map<Key, Clock::time_point> leases_;  ///< with their ends
};

}  // namespace modelgate
