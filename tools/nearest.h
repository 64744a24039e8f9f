#pragma once

#include <string>
#include <vector>

namespace treectl {

/// Names that the user may have meant. No system calls; any thread.

/// The name that is most like `wanted`, escaped as in an address; empty if none is like it at all.
[[nodiscard]] std::string nearestName(const std::string& wanted,
                                      const std::vector<std::string>& names);

/// "there are: A, B" with the servers other than `wanted`, sorted by name. Of more than eight only
/// those that are most like it, these first: "there are: A, ..., H, and 292 more". "there is none"
/// without any. `names` are sorted.
[[nodiscard]] std::string otherServers(const std::string& wanted, std::vector<std::string> names);

}  // namespace treectl
