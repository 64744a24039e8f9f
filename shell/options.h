#pragma once

#include <atomic>
#include <string>

/// The switches of the program's command line.

namespace treescope {

/// Set by the switch "-a": `set` stores with the loader's flag, which protected
/// parts ask for. Written before the shell is constructed, read from any thread.
extern std::atomic<bool> forceLoadFlag;

/// What the program is asked to do.
namespace run_mode {
inline constexpr int interactive = 0;
inline constexpr int commandString = 1;
inline constexpr int commandFile = 2;
inline constexpr int help = 3;
}  // namespace run_mode

/// Reads `argv` (argv[0] is skipped): sets `mode` to a value of `run_mode` and
/// `text` to the command string or the file's name, and `forceLoadFlag`; what no
/// switch asks for is left alone. Later switches win; of the letters of one word
/// those are skipped that stand behind the first one after which a mode is set,
/// by whatever word. What it does not know is ignored without a message, and so
/// is a switch whose text is missing.
void parseOptions(int argc, char* argv[], int& mode, std::string& text);

}  // namespace treescope
