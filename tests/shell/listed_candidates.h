#pragma once

#include <algorithm>
#include <string>
#include <vector>

namespace treescope {

/// What an interactive shell writes for several candidates on a terminal that gives
/// no width: one a row, each as wide as the longest and two blanks.
inline std::string listedCandidates(const std::vector<std::string>& candidates) {
  std::size_t width = 0;
  for (const std::string& candidate : candidates) {
    width = std::max(width, candidate.size() + 2);
  }
  std::string bytes;
  for (const std::string& candidate : candidates) {
    bytes += "\033[39m\033[1G" + candidate + std::string(width - candidate.size(), ' ') + '\n';
  }
  return bytes;
}

}  // namespace treescope
