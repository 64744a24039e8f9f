#include <csignal>
#include <optional>

#include "tests/attack/attack_test.h"
#include "tests/attack/scripted_server.h"
#include "tests/attack/typed_shell.h"
#include "tests/support/scratch_directory.h"

// Trees without an end, and replies that claim more than they have: no crash, and a bounded
// amount of memory.

namespace attack {
namespace {

namespace wire = fault::wire;

constexpr std::uint16_t widest = 65535;

class AttackHostileTree : public AttackTest {
 protected:
  void serve(ScriptedServer::Script script, ScriptedServer::Turn turn = {}) {
    server_.emplace(mailbox, std::move(script), std::move(turn));
    // Half of these 64 MiB.
    shell_.emplace(std::vector<std::string>{"/bin/sh", "-c", "ulimit -m 65536 && exec \"$0\"",
                                            test_support::treescopeProgram()});
    shell_->run("cd " + port, port);
  }

  /// Runs a line, and returns what the shell wrote until the next prompt.
  std::string run(const std::string& line) {
    const std::size_t mark = shell_->session().mark();
    shell_->run(line, port);
    return shell_->session().bytesSince(mark);
  }

  /// The most memory that the shell has had, in MiB.
  [[nodiscard]] long memory() {
    return test_support::procNumber(shell_->session().pid(), "status", "VmHWM:") / 1024;
  }

  void expectOutOfMemory(const std::string& line) {
    EXPECT_NE(run(line).find("ERROR: OutOfMemory"), std::string::npos) << line;
    // An estimate may be wrong by a factor of 2, and the sanitizers' own memory comes on top.
    EXPECT_LT(memory(), test_support::sanitized ? 300 : 75) << line;
  }

  void leave() {
    shell_->enter("exit");
    shell_->expectEnd({0, 0});
  }

  std::optional<ScriptedServer> server_;
  std::optional<TypedShell> shell_;
};

TEST_F(AttackHostileTree, WithoutAnEndIsNotListed) {
  serve(endlessTree(widest, "n"));
  expectOutOfMemory("ls -r");
  expectOutOfMemory("ls -lr");
  leave();
}

TEST_F(AttackHostileTree, WithoutAnEndIsNotSaved) {
  const test_support::ScratchDirectory directory;
  serve(endlessTree(widest, "n"));
  expectOutOfMemory("to " + directory.write("values", ""));
  leave();
}

TEST_F(AttackHostileTree, WithoutAnEndIsNotSubscribed) {
  serve(endlessTree(widest, "n"));
  expectOutOfMemory("eu -r");
  leave();
}

// The layout needs the names of all children of a node, and whether each has children, before the
// first row: a listing is kept until it is complete, and what it takes is bounded.
TEST_F(AttackHostileTree, OfManyElementsInEachPartIsNotListed) {
  const ScriptedServer::Script tree = groupOf(1000);
  serve([tree](const wire::Frame& request) -> ScriptedReply {
    if (request.code == wire::elementSum && chainOf(request).size() == 2) {
      return {0, wire::u16(widest)};
    }
    return tree(request);
  });
  expectOutOfMemory("ls -r");
  leave();
}

// The depth has a limit of its own.
TEST_F(AttackHostileTree, OfOneBranchIsListed) {
  serve(endlessTree(1, "n"));
  shell_->session().discardOutput();
  shell_->enter("ls -r;exit");
  shell_->expectEnd({0, 0});
  EXPECT_GT(server_->requestsSince(), 4096U);
}

/// A server whose every reply has this payload.
ScriptedServer::Script always(const std::string& payload) {
  return [payload](const wire::Frame&) { return ScriptedReply{0, payload}; };
}

TEST_F(AttackHostileTree, ThatClaimsMoreThanItSendsTakesNoMemory) {
  serve(always(wire::u16(widest) + std::string(38, '\xFF')));
  for (const char* line :
       {"ls", "ls -lr", "get x", "eu -r", "du", "cd x", "to /dev/null", "set 1 x"}) {
    run(line);
  }
  EXPECT_LT(memory(), 200);
  leave();
}

// Each of 1,000 candidates takes a request.
TEST_F(AttackHostileTree, OfASlowServerIsCompletedInSeconds) {
  serve(groupOf(1000), {Manner::slow, wire::childNames, 2});
  ASSERT_TRUE(shell_->session().type("get group/\t" + test_support::keys::ctrl('A') +
                                     test_support::keys::ctrl('K') + "exit\r"));
  const auto end = shell_->expectEnd({0, 0});
  ASSERT_TRUE(server_->hasTurned());
  const std::chrono::duration<double> taken = end - server_->turnedAt();
  // Of two requests, the second one begins just before the end of 2 s.
  EXPECT_LT(taken.count(), 6);
}

/// While the shell waits for a server that is silent or slow, signals end it at once.
class AttackSilentServer : public AttackHostileTree, public testing::WithParamInterface<int> {
 protected:
  void endListing(Manner manner);
};

void AttackSilentServer::endListing(Manner manner) {
  serve(groupOf(1000), {manner, wire::elementSum, 100});
  shell_->enter("ls -lr");
  ASSERT_TRUE(server_->hasTurned());
  ASSERT_TRUE(test_support::eventually([&] { return server_->requestsSince() > 0; }));
  const auto begin = ScriptedServer::Clock::now();
  if (GetParam() == SIGINT) {
    EXPECT_TRUE(shell_->session().type(test_support::keys::ctrl('C')));
  } else {
    shell_->session().signal(GetParam());
  }
  const std::chrono::duration<double> taken = shell_->expectEnd({0, GetParam()}) - begin;
  // A request would take 2 s; the rest is for a machine with other work.
  EXPECT_LT(taken.count(), 1);
}

TEST_P(AttackSilentServer, DoesNotDelayASignal) {
  endListing(Manner::never);
}

TEST_P(AttackSilentServer, ThatSendsSlowlyDoesNotDelayASignal) {
  endListing(Manner::byteByByte);
}

INSTANTIATE_TEST_SUITE_P(That, AttackSilentServer, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const testing::TestParamInfo<int>& row) {
                           return std::string(row.param == SIGINT    ? "Interrupts"
                                              : row.param == SIGTERM ? "Terminates"
                                                                     : "HangsUp");
                         });

}  // namespace
}  // namespace attack
