#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>

#include "evtsrv/source/system.h"

/// Who gets in: which pipes this process may trust, and how its own are closed to
/// others.
namespace EvtSrv::internal {

inline constexpr mode_t ownMode = 0600;
inline constexpr mode_t sharedMode = 0660;

/// Whether `pipe` is a pipe that this process may use: its owner is this user or
/// root, or it belongs to `group`, of which this process is a member, and is open
/// to nobody else. Root may use any user's.
bool isTrusted(System& system, const struct stat& pipe, std::optional<gid_t> group);

/// The group that `pipe` is shared with by its mode and that this process is a
/// member of (root: is of every one); nothing for a pipe of its owner alone.
std::optional<gid_t> sharedGroup(System& system, const struct stat& pipe);

/// Whether both are the same file.
bool isSameFile(const struct stat& one, const struct stat& other);

/// Gives the file behind `descriptor`, whose status is `now`, to `owner` and
/// `group` (nothing: left alone) with exactly `mode`. Asks the system only for
/// what differs.
[[nodiscard]] int setAccess(System& system, int descriptor, const struct stat& now,
                            std::optional<uid_t> owner, std::optional<gid_t> group, mode_t mode);

}  // namespace EvtSrv::internal
