#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "modelsrv/result.h"

namespace modelsrvd {

/// Small files that hold one value, such as those of sysfs(5). For one thread; nothing blocks.

/// The largest value in a file, in bytes.
inline constexpr std::size_t maxValueFileBytes = std::size_t{64} * 1024;

/// Reads the file at `path` without one line feed at its end. `ModelRes_NoValue` if it cannot be
/// read: it is missing, not a regular file, or an error occurs. `ModelRes_TooLarge` if it has more
/// than `maxValueFileBytes`.
ModelSrv::ModelRes readValueFile(const std::string& path, std::string& text);

/// Writes `text` and a line feed to the existing regular file at `path` in one write. Returns
/// why the file did not take it, or that it would have more than `maxValueFileBytes`; nothing on
/// success.
[[nodiscard]] std::optional<std::string> writeValueFile(const std::string& path,
                                                        std::string_view text);

/// Whether changes of the file at `path` can be noticed by its directory (inotify(7)): not if it
/// is in a file system whose files change without a write on this machine (one of the kernel, or
/// one on another machine), or if the path has a symbolic link, which may be switched.
[[nodiscard]] bool reportsChanges(const std::string& path);

}  // namespace modelsrvd
