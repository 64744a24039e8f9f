#include "tests/fault/matrix/isolation.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

#include "tests/fault/matrix/stage.h"

namespace fault_matrix {

namespace {

void removeAll(const std::string& directory) {
  for (const std::string& name : namesIn(directory)) {
    std::error_code ignored;
    std::filesystem::remove_all(std::filesystem::path(directory) / name, ignored);
  }
}

/// Without the privilege to mount, a user namespace gives it.
void separateMounts() {
  if (::unshare(CLONE_NEWNS) != 0) {
    const std::string user = std::to_string(::geteuid());
    const std::string group = std::to_string(::getegid());
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
      throwError("unshare");
    }
    writeFile("/proc/self/setgroups", "deny");
    writeFile("/proc/self/uid_map", user + " " + user + " 1");
    writeFile("/proc/self/gid_map", group + " " + group + " 1");
  }
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      ::mount("tmpfs", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, nullptr) != 0) {
    throwError("mount");
  }
}

}  // namespace

Isolation::Isolation() {
  std::string name = "/tmp/fault_matrix.XXXXXX";
  if (::mkdtemp(name.data()) == nullptr || ::chdir(name.c_str()) != 0) {
    throwError("mkdtemp");
  }
  directory_ = name;
  separateMounts();
  // So that what a program leaves running can be waited for.
  if (::prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) {
    throwError("prctl");
  }
}

Isolation::~Isolation() {
  removeAll(".");
  if (::umount2("/tmp", MNT_DETACH) == 0) {
    ::rmdir(directory_.c_str());
  }
}

void Isolation::clear() {
  removeAll("/tmp");
  removeAll(".");
}

}  // namespace fault_matrix
