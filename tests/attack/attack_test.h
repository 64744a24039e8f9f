#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/fault/fault_test.h"

/// Attacks that must not succeed: other users, hostile files in /tmp, hostile peers.
///
/// The name of a suite begins with "Attack". The tests run as root, which becomes the users,
/// and each has a /tmp of its own, so that fixed names in it disturb no other test.
namespace attack {

/// Whom a process runs as.
struct Identity {
  uid_t user;
  gid_t group;                     ///< the primary group
  std::vector<gid_t> groups = {};  ///< the supplementary groups
};

// Ids without accounts. The members have the group `sharedGroup`, which a server may share
// its port with; everyone has a primary group of his own, but for the two neighbours.
inline constexpr gid_t sharedGroup = 54400;
inline constexpr gid_t commonGroup = 54500;
inline const Identity root{0, 0};
inline const Identity owner{54321, 54321, {sharedGroup}};
inline const Identity stranger{54322, 54322};
inline const Identity member{54323, 54323, {sharedGroup}};
inline const Identity otherMember{54324, 54324, {sharedGroup}};
inline const Identity neighbour{54325, commonGroup};
inline const Identity otherNeighbour{54326, commonGroup};

/// The peer's command that makes it this user.
std::string become(const Identity& identity);

/// A process of a user that does one thing, and keeps what it has opened until it is
/// destroyed. It is killed then, or when the test's process ends.
class Intruder {
 public:
  /// Runs `action` in a child process with `identity`, and returns when it has returned; the
  /// child then runs `further`. They make system calls only; what the action returns, 0 to
  /// 255, is the result.
  Intruder(const Identity& identity, const std::function<int()>& action,
           const std::function<void()>& further = {});
  ~Intruder();
  Intruder(const Intruder&) = delete;
  Intruder& operator=(const Intruder&) = delete;

  /// What the action has returned; -1 if the process could not take the identity.
  [[nodiscard]] int result() const { return result_; }
  [[nodiscard]] pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
  int result_ = -1;
};

/// The result of `action`, run as `identity` by a process that ends with it.
int doAs(const Identity& identity, const std::function<int()>& action);

/// A test of attacks. It is skipped, with the reason, if it does not run as root or cannot
/// have a /tmp of its own. See FaultTest for `port` and `mailbox`.
class AttackTest : public fault::FaultTest {
 protected:
  AttackTest();
  ~AttackTest() override;

  /// Makes /tmp a file system of its own with this tmpfs option (tmpfs(5)), such as
  /// "size=4k"; the fixture has mounted one without a limit.
  static void mountTmp(const std::string& option);

  /// Makes `peer` a process of this user.
  static void start(fault::Peer& peer, const Identity& identity) {
    ASSERT_EQ(peer.execute(become(identity)), "ok");
  }

  /// The permission bits of the file at `path`; 0 if there is none.
  static mode_t modeOf(const std::string& path);

  /// Makes a pipe at `path`, whatever the umask, that belongs to `identity`.
  static void plant(const std::string& path, const Identity& identity, mode_t mode);

 private:
  static void prepare();

  static int mounts_;
};

}  // namespace attack
