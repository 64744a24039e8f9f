#include "term/completion.h"

#include <algorithm>
#include <string_view>

namespace treescope {

std::string commonBeginning(const std::vector<std::string>& candidates) {
  if (candidates.empty()) {
    return {};
  }
  std::string_view common = candidates.front();
  for (const std::string& candidate : candidates) {
    const auto differs =
        std::mismatch(common.begin(), common.end(), candidate.begin(), candidate.end()).first;
    common = common.substr(0, static_cast<std::size_t>(differs - common.begin()));
  }
  return std::string(common);
}

}  // namespace treescope
