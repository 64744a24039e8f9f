#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <optional>
#include <vector>

namespace treescope {

/// The positions of a list's items in the order of some key of theirs, so that
/// looking for each of many items takes few steps.
///
/// A plain value for any thread; it knows neither the items nor their keys.
class SortedPositions {
 public:
  SortedPositions() = default;

  /// Of a list of `count` items; `below` says of two positions whether the first
  /// one's key comes before the other's.
  template <typename Below>
  SortedPositions(std::size_t count, Below below) : positions_(count) {
    std::iota(positions_.begin(), positions_.end(), std::uint32_t{0});
    std::stable_sort(positions_.begin(), positions_.end(), below);
  }

  /// The first position in the list whose key is the wanted one; nothing where
  /// there is none. `compare` is below 0 for a position whose key comes before the
  /// wanted one, above 0 behind it, and 0 where it is that; it is asked about
  /// logarithmically many.
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
