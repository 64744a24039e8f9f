#include "tests/attack/attack_test.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <cstring>

#include "tests/support/own_mounts.h"

namespace attack {

namespace {

bool take(const Identity& identity) {
  return ::setgroups(identity.groups.size(), identity.groups.data()) == 0 &&
         ::setresgid(identity.group, identity.group, identity.group) == 0 &&
         ::setresuid(identity.user, identity.user, identity.user) == 0 &&
         // A change of the user clears it.
         ::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0;
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

// Here and not in SetUp: what a derived fixture starts is to have this /tmp.
AttackTest::AttackTest() {
  prepare();
}

void AttackTest::prepare() {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can start processes of several users";
  }
  if (!test_support::haveOwnMounts()) {
    GTEST_SKIP() << "no mounts of its own: " << std::strerror(errno);
  }
  // The thread sanitizer keeps a file there, which would use the space of a small /tmp up.
  ASSERT_EQ(::setenv("TMPDIR", "/dev/shm", 1), 0);
  mountTmp("mode=1777");
}

AttackTest::~AttackTest() {
  for (; mounts_ > 0; --mounts_) {
    EXPECT_TRUE(test_support::unmountOwnTmp()) << std::strerror(errno);
  }
}

void AttackTest::mountTmp(const std::string& option) {
  const std::string options = "mode=1777," + option;
  ASSERT_TRUE(test_support::mountOwnTmp(options.c_str())) << std::strerror(errno);
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
