#pragma once

#include <algorithm>
#include <string>
#include <vector>

namespace test_support {

/// What an interactive shell prints for several candidates on a terminal that does
/// not report its width: one on each row, padded to the longest and two spaces.
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

}  // namespace test_support
