#pragma once

/// The codes with which commands, the dispatcher and the script runners answer,
/// and the messages that belong to them. Plain integers: a handler may give any.

namespace treescope {

namespace result {
inline constexpr int success = 1;
inline constexpr int unknownError = 2;
/// Nothing to report: not supported by this shell, or nothing was asked.
inline constexpr int nothing = 3;
inline constexpr int notFound = 4;
/// Options that the command does not take, too many arguments or too few.
inline constexpr int optionError = 5;
inline constexpr int openFileError = 6;
inline constexpr int connectError = 7;
inline constexpr int outOfMemory = 8;
inline constexpr int fileExists = 9;
inline constexpr int badArgument = 10;
/// The shell is ending.
inline constexpr int exit = 11;
}  // namespace result

/// The message of `code`; null for the codes that have none. Any thread.
[[nodiscard]] const char* resultMessage(int code);

}  // namespace treescope
