#include <array>

#include "tests/attack/attack_test.h"
#include "tests/attack/scripted_server.h"
#include "tests/attack/typed_shell.h"

// The shell leaves a server at once, however slow that is and whatever it still owes.

namespace attack {
namespace {

namespace wire = fault::wire;

constexpr std::uint16_t subscriptions = 1000;
// A request takes at most 2 s; the rest is for a machine with other work.
constexpr std::chrono::seconds leaveLimit(3);

using Clock = ScriptedServer::Clock;

struct SlowServer {
  const char* name;
  Manner manner;
};

/// How the test list shows a row.
void PrintTo(const SlowServer& row, std::ostream* out) {
  *out << row.name;
}

constexpr std::array<SlowServer, 4> slowServers{{{"Slow", Manner::slow},
                                                 {"Silent", Manner::never},
                                                 {"SendingByteByByte", Manner::byteByByte},
                                                 {"ThatCloses", Manner::closing}}};

std::string nameOf(const testing::TestParamInfo<SlowServer>& row) {
  return row.param.name;
}

/// The server becomes slow with the last subscription.
class AttackLeaving : public AttackTest, public testing::WithParamInterface<SlowServer> {
 protected:
  void expectSoon(Clock::time_point begin, Clock::time_point end) const {
    const std::chrono::duration<double> taken = end - begin;
    EXPECT_LT(taken, leaveLimit) << taken.count() << " s, " << server_.requestsSince()
                                 << " requests";
  }

  void expectEnd(const std::string& commands) {
    const auto shell =
        test_support::run({test_support::treescopeProgram(), "-c", "cd " + port + ";" + commands});
    const auto end = Clock::now();
    EXPECT_EQ(shell.status, (test_support::ExitStatus{0, 0}));
    ASSERT_TRUE(server_.hasTurned()) << shell.output << shell.errors;
    expectSoon(server_.turnedAt(), end);
  }

  ScriptedServer server_{
      mailbox, groupOf(subscriptions), {GetParam().manner, wire::subscribe, subscriptions}};
};

TEST_P(AttackLeaving, ByExitIsQuick) {
  expectEnd("eu -r group;exit");
}

TEST_P(AttackLeaving, ByCdIsQuick) {
  expectEnd("eu -r group;cd;pwd");
}

// There the names of the subscribed parts would be requested, too.
TEST_P(AttackLeaving, FromBelowTheRootIsQuick) {
  expectEnd("cd group;eu -r;exit");
}

TEST_P(AttackLeaving, AtTheEndOfACommandStringIsQuick) {
  expectEnd("eu -r group;pwd");
}

INSTANTIATE_TEST_SUITE_P(AServer, AttackLeaving, testing::ValuesIn(slowServers), nameOf);

class AttackLeavingTyped : public AttackLeaving {
 protected:
  AttackLeavingTyped() {
    shell_.run("cd " + port, port);
    shell_.run("eu -r group", port);
    EXPECT_TRUE(server_.hasTurned());
  }

  TypedShell shell_;
};

TEST_P(AttackLeavingTyped, ByQuitIsQuick) {
  shell_.enter("quit");
  expectSoon(server_.turnedAt(), shell_.expectEnd({0, 0}));
}

TEST_P(AttackLeavingTyped, ByEndOfInputIsQuick) {
  shell_.session().hangUp();
  const auto ended = shell_.session().waitForExit();
  expectSoon(server_.turnedAt(), Clock::now());
  EXPECT_EQ(ended, (test_support::ExitStatus{0, 0}));
}

TEST_P(AttackLeavingTyped, ForAnotherServerIsQuick) {
  const std::string other = test_support::uniquePortName();
  {
    ScriptedServer second(pathOf(other), groupOf(1), {});
    shell_.run("cd;cd " + other, other);
    expectSoon(server_.turnedAt(), Clock::now());
    shell_.enter("q");
    shell_.expectEnd({0, 0});
  }
}

INSTANTIATE_TEST_SUITE_P(AServer, AttackLeavingTyped, testing::ValuesIn(slowServers), nameOf);

/// The slow server has sent an update, which the shell displays: that takes several requests, and
/// no other thread can make one meanwhile.
class AttackLeavingAnUpdate : public AttackTest {
 protected:
  AttackLeavingAnUpdate() {
    shell_.run("cd " + port, port);
    shell_.run("eu group/part1", port);
    EXPECT_TRUE(server_.hasTurned());
    EXPECT_TRUE(test_support::eventually([&] { return server_.requestsSince() > 0; }));
  }

  ScriptedServer server_{mailbox, groupOf(1), {Manner::slow, wire::subscribe, 1, updateOf({1, 1})}};
  TypedShell shell_;
};

TEST_F(AttackLeavingAnUpdate, IsQuick) {
  shell_.enter("exit");
  const auto end = shell_.expectEnd({0, 0});
  EXPECT_LT(end - server_.turnedAt(), leaveLimit + std::chrono::milliseconds(500));
}

TEST_F(AttackLeavingAnUpdate, EndsTheDisplayAfterTwoSeconds) {
  ASSERT_TRUE(shell_.session().readThrough("/noname-1\r\n"));
  const std::chrono::duration<double> taken = Clock::now() - server_.turnedAt();
  // Two requests, where the second one begins just before the end of the time.
  EXPECT_LT(taken.count(), 5) << server_.requestsSince() << " requests";
  shell_.enter("exit");
  shell_.expectEnd({0, 0});
}

}  // namespace
}  // namespace attack
