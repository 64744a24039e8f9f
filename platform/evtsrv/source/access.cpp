#include "evtsrv/source/access.h"

namespace EvtSrv::internal {

namespace {

constexpr mode_t permissionBits = 07777;
constexpr mode_t othersBits = 07;
constexpr mode_t groupReadWrite = 060;

}  // namespace

bool isPipe(const struct stat& pipe) {
  return S_ISFIFO(pipe.st_mode) && pipe.st_nlink == 1;
}

bool mayServe(System& system, const struct stat& mailbox) {
  return isPipe(mailbox) && mailbox.st_uid == system.effectiveUser();
}

bool isTrusted(System& system, const struct stat& pipe, std::optional<gid_t> group) {
  if (!isPipe(pipe)) {
    return false;
  }
  const uid_t user = system.effectiveUser();
  if (user == 0 || pipe.st_uid == user || pipe.st_uid == 0) {
    return true;
  }
  return group.has_value() && pipe.st_gid == *group && (pipe.st_mode & othersBits) == 0 &&
         system.isMember(*group);
}

std::optional<gid_t> sharedGroup(System& system, const struct stat& pipe) {
  const bool shared = (pipe.st_mode & groupReadWrite) == groupReadWrite;
  if (shared && (system.effectiveUser() == 0 || system.isMember(pipe.st_gid))) {
    return pipe.st_gid;
  }
  return std::nullopt;
}

bool isSameFile(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

int setAccess(System& system, int descriptor, const struct stat& now, std::optional<uid_t> owner,
              std::optional<gid_t> group, mode_t mode) {
  const bool newOwner = owner.has_value() && *owner != now.st_uid;
  const bool newGroup = group.has_value() && *group != now.st_gid;
  if (newOwner || newGroup) {
    const int result = system.setOwner(descriptor, newOwner ? *owner : static_cast<uid_t>(-1),
                                       newGroup ? *group : static_cast<gid_t>(-1));
    if (result < 0) {
      return result;
    }
  }
  return (now.st_mode & permissionBits) == mode ? 0 : system.setMode(descriptor, mode);
}

}  // namespace EvtSrv::internal
