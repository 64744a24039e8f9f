#include "evtsrv/source/access.h"

namespace EvtSrv::internal {

namespace {

constexpr uid_t rootUser = 0;
constexpr gid_t rootGroup = 0;

constexpr mode_t permissionBits = 07777;
constexpr mode_t othersBits = 07;

bool isShared(const struct stat& mailbox) {
  return (mailbox.st_mode & groupAndOthersBits) == (sharedMailboxMode & groupAndOthersBits);
}

}  // namespace

bool isPipe(const struct stat& file) {
  return S_ISFIFO(file.st_mode) && file.st_nlink == 1;
}

bool mayServe(System& system, const struct stat& mailbox) {
  return isPipe(mailbox) && mailbox.st_uid == system.effectiveUser();
}

std::optional<PipeAccess> clientAccess(System& system, const struct stat& mailbox) {
  if (!isPipe(mailbox)) {
    return std::nullopt;
  }
  const uid_t user = system.effectiveUser();
  const gid_t group = mailbox.st_gid;
  if (user == rootUser) {
    return mailbox.st_uid == rootUser ? PipeAccess{} : PipeAccess{mailbox.st_uid, rootGroup};
  }
  if (mailbox.st_uid == user) {
    return PipeAccess{};
  }
  const bool shared = isShared(mailbox);
  if (mailbox.st_uid == rootUser) {
    // Root can open them as they are. The group shows that their owner is a member.
    const bool isMember =
        shared && (system.isPrimaryGroup(group) || system.isSupplementaryGroup(group));
    return isMember ? PipeAccess{std::nullopt, group} : PipeAccess{};
  }
  if (shared && !system.isPrimaryGroup(group) && system.isSupplementaryGroup(group)) {
    return PipeAccess{std::nullopt, group, sharedPipeMode};
  }
  return std::nullopt;
}

bool mayServeClient(System& system, const struct stat& pipe, std::optional<gid_t> group) {
  if (!isPipe(pipe)) {
    return false;
  }
  const bool isMembers =
      group.has_value() && pipe.st_gid == *group && (pipe.st_mode & othersBits) == 0;
  return isMembers || pipe.st_uid == rootUser || pipe.st_uid == system.effectiveUser();
}

uid_t userOfClient(System& system, const struct stat& pipe) {
  const bool isRoots = pipe.st_uid == system.effectiveUser() && pipe.st_gid == rootGroup;
  return isRoots ? rootUser : pipe.st_uid;
}

bool isSameFile(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

int setAccess(System& system, int descriptor, const struct stat& now, const PipeAccess& access) {
  const bool newOwner = access.owner.has_value() && *access.owner != now.st_uid;
  const bool newGroup = access.group.has_value() && *access.group != now.st_gid;
  if (newOwner || newGroup) {
    const int result =
        system.setOwner(descriptor, newOwner ? *access.owner : static_cast<uid_t>(-1),
                        newGroup ? *access.group : static_cast<gid_t>(-1));
    if (result < 0) {
      return result;
    }
  }
  return (now.st_mode & permissionBits) == access.mode ? 0
                                                       : system.setMode(descriptor, access.mode);
}

}  // namespace EvtSrv::internal
