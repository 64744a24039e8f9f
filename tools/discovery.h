#pragma once

#include <string>
#include <vector>

namespace treectl {

/// The names of the servers that have a mailbox, in the order of their bytes, as the shell lists
/// them: those that begin with "Model_" or end with ".Model". A server may have died.
[[nodiscard]] std::vector<std::string> discoverServers();

/// The same without those whose mailbox no process reads: they have died.
[[nodiscard]] std::vector<std::string> discoverLivingServers();

}  // namespace treectl
