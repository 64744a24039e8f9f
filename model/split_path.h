#pragma once

#include <string>

namespace treescope {

/// How commands and completion take a path apart: where to look, and for what.
///
/// Pure; any thread. A path may hold any bytes.

/// A path cut at its last "/".
struct SplitPath {
  /// Empty for the current directory, "/" for the server's root.
  std::string parent;
  std::string last;

  bool operator==(const SplitPath&) const = default;
};

[[nodiscard]] SplitPath splitAtLastSlash(const std::string& path);

}  // namespace treescope
