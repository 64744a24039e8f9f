#pragma once

#include <string>
#include <vector>

namespace treescope {

/// What several candidates for a word have in common, so that completion can put it
/// in. Pure; any thread. Candidates may hold any bytes.

/// The longest beginning that all of `candidates` share; empty where they share none,
/// and where there are no candidates.
[[nodiscard]] std::string commonBeginning(const std::vector<std::string>& candidates);

}  // namespace treescope
