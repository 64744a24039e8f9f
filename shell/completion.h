#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "shell/command_table.h"

namespace treescope {

/// Which command words completion offers. Constant and pure; any thread.
///
/// What it does with them is `ScopeBase::completeCommandWord`.

/// The codes of the commands that are ever offered, in the order in which they are
/// listed, ended by `noCommand`.
extern const std::array<int, 14> completedCommands;

/// Those of the commands of `codes` (ended by `noCommand`) that begin with `head`,
/// each with one blank behind its name; an empty `head` begins all of them.
[[nodiscard]] std::vector<std::string> commandCandidates(const int* codes, std::string_view head);

}  // namespace treescope
