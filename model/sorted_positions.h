#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <optional>
#include <vector>

namespace treescope {

/// An index for binary search: the positions of a list's items, sorted by a key of
/// the items. The index knows neither the items nor their keys.
///
/// A plain value for any thread.
class SortedPositions {
 public:
  SortedPositions() = default;

  /// Sorts the positions 0 to `count` - 1. `below` takes two positions and returns
  /// whether the key of the first is less than that of the second.
  template <typename Below>
  SortedPositions(std::size_t count, Below below) : positions_(count) {
    std::iota(positions_.begin(), positions_.end(), std::uint32_t{0});
    std::stable_sort(positions_.begin(), positions_.end(), below);
  }

  /// The lowest position whose key equals the searched key; nothing if there is none.
  /// `compare` takes a position and returns a number below, equal to or above 0 if
  /// its key is less than, equal to or greater than the searched key. It is called a
  /// logarithmic number of times.
  template <typename Compare>
  [[nodiscard]] std::optional<std::size_t> findFirst(Compare compare) const {
    const auto found =
        std::partition_point(positions_.begin(), positions_.end(),
                             [&](std::uint32_t position) { return compare(position) < 0; });
    if (found == positions_.end() || compare(*found) != 0) {
      return std::nullopt;
    }
    return *found;
  }

 private:
  std::vector<std::uint32_t> positions_;
};

}  // namespace treescope
