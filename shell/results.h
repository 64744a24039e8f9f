#pragma once

/// The result codes of commands, of the dispatcher and of the script runners, and
/// their messages. They are plain integers; a handler may return any other, too.

namespace treescope {

namespace result {
inline constexpr int success = 1;
inline constexpr int unknownError = 2;
/// Nothing to report: an empty command, or one that this shell does not support.
inline constexpr int nothing = 3;
inline constexpr int notFound = 4;
/// An option that the command does not accept, too many arguments or too few.
inline constexpr int optionError = 5;
inline constexpr int openFileError = 6;
inline constexpr int connectError = 7;
inline constexpr int outOfMemory = 8;
inline constexpr int fileExists = 9;
inline constexpr int badArgument = 10;
/// The shell is ending.
inline constexpr int exit = 11;
}  // namespace result

/// The message of `code`; null for success, nothing and exit, which have none. Any
/// thread.
[[nodiscard]] const char* resultMessage(int code);

}  // namespace treescope
