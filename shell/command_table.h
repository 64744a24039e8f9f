#pragma once

#include <array>
#include <string>
#include <vector>

/// The commands of the shell: their names and what each may be given. Constant,
/// any thread may read.

namespace treescope {

/// Bits of an option word.
inline constexpr unsigned optionRecursive = 1;  ///< -r
inline constexpr unsigned optionMore = 2;       ///< -m
inline constexpr unsigned optionLong = 4;       ///< -l
inline constexpr unsigned optionCount = 8;      ///< -c

struct CommandRow {
  const char* name;
  /// The largest number of argument words, options not counted.
  unsigned maxArgs;
  /// The option bits that the command takes.
  unsigned optionMask;
};

inline constexpr int commandRows = 31;

/// A row's index is its command's code. The last row, without a name, is no
/// command.
extern const std::array<CommandRow, commandRows> commandTable;

/// What `commandCode` gives for a text that is no row's.
inline constexpr int noCommand = 31;

/// The code of the row whose name followed by one blank equals `text`
/// (zero-terminated, not null); the nameless row's for a lone blank; else
/// `noCommand`.
[[nodiscard]] int commandCode(const char* text);

/// Removes every word that begins with "-" from `args` and collects the bits of
/// its letters in `options`; letters without a bit are ignored. Gives
/// `result::optionError` when more than `maxArgs` words are left or a bit outside
/// `optionMask` was given, else `result::success`.
[[nodiscard]] int checkArguments(std::vector<std::string>& args, unsigned& options,
                                 unsigned maxArgs, unsigned optionMask);

}  // namespace treescope
