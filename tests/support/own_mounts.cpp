#include "tests/support/own_mounts.h"

#include <sched.h>
#include <sys/mount.h>

namespace test_support {

namespace {

constexpr const char* tmp = "/tmp";

}  // namespace

bool haveOwnMounts() {
  static const bool has = ::unshare(CLONE_NEWNS) == 0 &&
                          ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  return has;
}

bool mountOwnTmp(const char* options) {
  return ::mount("tmpfs", tmp, "tmpfs", MS_NOSUID | MS_NODEV, options) == 0;
}

bool unmountOwnTmp() {
  return ::umount2(tmp, MNT_DETACH) == 0;
}

}  // namespace test_support
