#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>

#include "evtsrv/source/system.h"

/// Access control: which pipes this process trusts, and who may open its own.
namespace EvtSrv::internal {

inline constexpr mode_t ownMode = 0600;
inline constexpr mode_t sharedMode = 0660;

/// Whether `pipe` is a pipe with one name. Another link to it would give it a second path,
/// which another user may have made.
bool isPipe(const struct stat& pipe);

/// Whether this process may serve `mailbox`: a pipe of its own effective user, root
/// included.
bool mayServe(System& system, const struct stat& mailbox);

/// Whether `pipe` is a pipe that this process may use: its owner is this user or root;
/// or it belongs to `group`, of which this process is a member, and others have no
/// access. Root may use the pipe of any user.
bool isTrusted(System& system, const struct stat& pipe, std::optional<gid_t> group);

/// The group of `pipe` if its mode lets the group read and write and this process is a
/// member of it (root counts as a member of every group); else empty.
std::optional<gid_t> sharedGroup(System& system, const struct stat& pipe);

/// Whether both are the same file.
bool isSameFile(const struct stat& one, const struct stat& other);

/// Sets owner, group and mode of the file of `descriptor`; an empty `owner` or `group`
/// keeps the present one. `now` is its present status: what is right already costs no
/// system call. 0 or a negative error number.
[[nodiscard]] int setAccess(System& system, int descriptor, const struct stat& now,
                            std::optional<uid_t> owner, std::optional<gid_t> group, mode_t mode);

}  // namespace EvtSrv::internal
