#include "tests/attack/attack_test.h"

#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <cstring>

namespace attack {

namespace {

constexpr const char* tmp = "/tmp";

bool take(const Identity& identity) {
  return ::setgroups(identity.groups.size(), identity.groups.data()) == 0 &&
         ::setresgid(identity.group, identity.group, identity.group) == 0 &&
         ::setresuid(identity.user, identity.user, identity.user) == 0 &&
         // A change of the user clears it.
         ::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0;
}

/// Gives this process mounts of its own, once.
bool hasOwnMounts() {
  static const bool has = ::unshare(CLONE_NEWNS) == 0 &&
                          ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  return has;
}

}  // namespace

std::string become(const Identity& identity) {
  std::string command =
      "become " + std::to_string(identity.user) + " " + std::to_string(identity.group);
  for (const gid_t group : identity.groups) {
    command += " " + std::to_string(group);
  }
  return command;
}

Intruder::Intruder(const Identity& identity, const std::function<int()>& action,
                   const std::function<void()>& further) {
  int report[2];
  if (::pipe2(report, O_CLOEXEC) != 0) {
    return;
  }
  pid_ = ::fork();
  if (pid_ == 0) {
    if (!take(identity)) {
      ::_exit(1);
    }
    const auto result = static_cast<unsigned char>(action());
    if (::write(report[1], &result, 1) != 1) {
      ::_exit(1);
    }
    if (further) {
      further();
    }
    for (;;) {
      ::pause();
    }
  }
  ::close(report[1]);
  unsigned char result = 0;
  if (::read(report[0], &result, 1) == 1) {
    result_ = result;
  }
  ::close(report[0]);
}

Intruder::~Intruder() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    int status = 0;
    ::waitpid(pid_, &status, 0);
  }
}

int doAs(const Identity& identity, const std::function<int()>& action) {
  return Intruder(identity, action).result();
}

int AttackTest::mounts_ = 0;

void AttackTest::SetUp() {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can start processes of several users";
  }
  if (!hasOwnMounts()) {
    GTEST_SKIP() << "no mounts of its own: " << std::strerror(errno);
  }
  mountTmp("mode=1777");
}

void AttackTest::TearDown() {
  for (; mounts_ > 0; --mounts_) {
    EXPECT_EQ(::umount2(tmp, MNT_DETACH), 0) << std::strerror(errno);
  }
}

void AttackTest::mountTmp(const std::string& option) {
  const std::string options = "mode=1777," + option;
  ASSERT_EQ(::mount("tmpfs", tmp, "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()), 0)
      << std::strerror(errno);
  ++mounts_;
}

mode_t AttackTest::modeOf(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

void AttackTest::plant(const std::string& path, const Identity& identity, mode_t mode) {
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0) << path << ": " << std::strerror(errno);
  ASSERT_EQ(::chown(path.c_str(), identity.user, identity.group), 0);
  ASSERT_EQ(::chmod(path.c_str(), mode), 0);
}

}  // namespace attack
