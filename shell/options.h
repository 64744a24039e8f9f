#pragma once

#include <atomic>
#include <string>

/// The options of the program's command line.

namespace treescope {

/// Set by the option "-a": `set` and `str` store with the loader's flag, which
/// protected parts require. Written before the shell is constructed, read by any
/// thread.
extern std::atomic<bool> forceLoadFlag;

/// What the program does.
namespace run_mode {
inline constexpr int interactive = 0;
inline constexpr int commandString = 1;
inline constexpr int commandFile = 2;
inline constexpr int help = 3;
}  // namespace run_mode

/// Parses `argv` from argv[1] on. Sets `mode` to a value of `run_mode`, `text` to the
/// command string or the name of the command file, and `forceLoadFlag`; leaves
/// unchanged what no option sets. A later option overrides an earlier one. The letters
/// of a word take effect up to the first one after which a mode is set, by this word
/// or an earlier one. Unknown words, and an option whose text is missing, are ignored
/// without a message.
void parseOptions(int argc, char* argv[], int& mode, std::string& text);

}  // namespace treescope
