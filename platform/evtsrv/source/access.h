#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>

#include "evtsrv/source/system.h"

/// Access control: which pipes this process trusts, and who may open its own. Every check is
/// of the status of an open descriptor.
namespace EvtSrv::internal {

inline constexpr mode_t ownMode = 0600;
/// The members of the group write hellos and read none.
inline constexpr mode_t sharedMailboxMode = 0620;
inline constexpr mode_t sharedPipeMode = 0660;
inline constexpr mode_t groupAndOthersBits = 077;

/// Who may open a pipe that this process makes.
struct PipeAccess {
  std::optional<uid_t> owner = {};  ///< becomes its owner; empty: stays this user
  std::optional<gid_t> group = {};  ///< becomes its group; empty: stays what it is
  mode_t mode = ownMode;
};

/// To whom a mailbox belongs, and with it the server that reads it.
struct MailboxOwner {
  uid_t user = 0;
  gid_t group = 0;
  bool operator==(const MailboxOwner&) const = default;
};

/// Whether it is a pipe with one name. Another link to it would be a second path, which
/// another user may have made.
bool isPipe(const struct stat& file);

/// Whether this process may serve `mailbox`: a pipe of its own effective user, root
/// included.
bool mayServe(System& system, const struct stat& mailbox);

/// The access to give to the private pipes of a connection to `mailbox`; empty if a client
/// of this process does not trust the mailbox. It trusts one of its own user and of root,
/// and one that is shared (`sharedMailboxMode`) with a supplementary group of the process,
/// but not with its primary one, which may be that of every user. Root trusts all.
std::optional<PipeAccess> clientAccess(System& system, const struct stat& mailbox);

/// Whether a server may use `pipe`, a client's private pipe: one of its own user or of
/// root, or one that belongs to `group`, with which the port is shared. Only a member can
/// have given it that group.
bool mayServeClient(System& system, const struct stat& pipe, std::optional<gid_t> group);

/// The user of a session whose private pipes are like `pipe`, which `mayServeClient` has allowed:
/// their owner. Pipes of this user and of group 0 are root's: its clients give them to the
/// server's user, and no other user can make such pipes.
uid_t userOfClient(System& system, const struct stat& pipe);

/// Whether both are the same file.
bool isSameFile(const struct stat& one, const struct stat& other);

/// Sets owner, group and mode of the file of `descriptor`. `now` is its present status: what
/// is right already costs no system call. 0 or a negative error number.
[[nodiscard]] int setAccess(System& system, int descriptor, const struct stat& now,
                            const PipeAccess& access);

}  // namespace EvtSrv::internal
