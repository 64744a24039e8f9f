#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "modelsrv/source/requests.h"
#include "modelsrv/source/tree_session.h"
#include "tests/platform/modelsrv/fake_connection.h"
#include "tests/platform/modelsrv/served_tree.h"
#include "tests/support/counted_allocations.h"
#include "tests/support/port_name.h"

// The cost of a change of a value in the server: no system call and no allocation, unless a
// client must be notified at once.

namespace {

using namespace ModelSrv;
using namespace ModelSrv::internal;
using namespace modelsrv_tests;

/// From now on every system call of the calling thread, except exit, terminates the process with
/// SIGSYS (seccomp(2)).
void forbidSystemCalls() {
  std::array<sock_filter, 4> program{{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
  }};
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
    ::_exit(99);
  }
}

/// Exits the process: with 0 if `change(count)` was true for each count and allocated nothing.
/// Memory that is kept between changes must have been allocated before.
template <typename Change>
[[noreturn]] void exitAfterChanges(Change change) {
  constexpr int rounds = 1000;
  forbidSystemCalls();
  const std::size_t before = test_support::allocated().count;
  for (int i = 1; i <= rounds; ++i) {
    if (!change(i)) {
      ::_exit(2);
    }
  }
  ::_exit(test_support::allocated().count == before ? 0 : 3);
}

struct Situation {
  const char* name;
  void (*begin)(const std::string& port, Server& server, Client& client);

  friend void PrintTo(const Situation& situation, std::ostream* out) { *out << situation.name; }
};

class Change : public testing::TestWithParam<Situation> {
 protected:
  /// The child process does not remove its mailbox.
  void TearDown() override { std::remove(test_support::mailboxPath(port_).c_str()); }

  std::string port_ = test_support::uniquePortName();
};

TEST_P(Change, MakesNoSystemCallAndAllocatesNothing) {
  const auto changeInChildProcess = [this] {
    Server server(port_);
    Client client;
    GetParam().begin(port_, server, client);
    // As in a server whose clients are all idle.
    server.pump.reset();
    exitAfterChanges([&server](int count) {
      return server.speed.setValue(count) == ModelRes_Success &&
             server.gains.setValue(1, count) == ModelRes_Success &&
             server.secret.setValue(count % 2 == 0) == ModelRes_Success;
    });
  };
  EXPECT_EXIT(changeInChildProcess(), testing::ExitedWithCode(0), "");
}

void require(bool holds) {
  if (!holds) {
    ::_exit(98);
  }
}

INSTANTIATE_TEST_SUITE_P(
    , Change,
    testing::Values(
        Situation{"WithoutAClient", [](const std::string&, Server&, Client&) {}},
        Situation{"WithAClientThatCachesNothing",
                  [](const std::string& port, Server&, Client& client) {
                    require(client.connect(port) == ModelRes_Success);
                  }},
        Situation{"WithAClientThatCachesOtherParts",
                  [](const std::string& port, Server&, Client& client) {
                    require(client.connect(port) == ModelRes_Success);
                    require(client.text({1, 12}) == "7");
                  }},
        Situation{"WithAClientThatCachesThePart",
                  [](const std::string& port, Server&, Client& client) {
                    require(client.connect(port) == ModelRes_Success);
                    // The second prefetch has the following parts too.
                    require(client.text({1, 1}) == "42" && client.text({1, 2}) == "two words");
                    require(client.text({1, 3}) == "1.5\n0.25" && client.text({1, 1}) == "42");
                  }}),
    [](const auto& test) { return std::string(test.param.name); });

/// A session whose client receives nothing.
class SessionCost : public testing::Test {
 protected:
  ModelRes handle(Operation operation, const std::vector<std::uint8_t>& request) {
    reply_.clear();
    EvtSrv::internal::PayloadReader reader(request, EvtSrv::internal::nativeOrder);
    return static_cast<ModelRes>(
        session_.handle(static_cast<std::uint16_t>(operation), reader, reply_));
  }

  void SetUp() override { ASSERT_EQ(root_.add(&speed_), ModelRes_Success); }

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, true};
  ModelRoot root_{&manager_};
  ValuePart<std::int32_t> speed_{9, "speed", 42};
  const std::lock_guard<KSTD::KThreadMutex> lock_{manager_.clientMutex};
  FakeConnection connection_;
  TreeSession session_{std::make_shared<SessionShare>(root_), connection_};
  std::vector<std::uint8_t> reply_;
};

TEST_F(SessionCost, AStoreMakesNoSystemCallAndAllocatesNothing) {
  const auto odd = payloadOf({Operation::load, {9}, all, false, "-7"});
  const auto even = payloadOf({Operation::load, {9}, all, false, "2147483647"});
  ASSERT_EQ(handle(Operation::load, even), ModelRes_Success);
  EXPECT_EXIT(exitAfterChanges([&](int count) {
                return handle(Operation::load, count % 2 == 0 ? even : odd) == ModelRes_Success;
              }),
              testing::ExitedWithCode(0), "");
}

TEST_F(SessionCost, AChangeWithAPendingUpdateMakesNoSystemCallAndAllocatesNothing) {
  ASSERT_EQ(handle(Operation::subscribe, payloadOf({Operation::subscribe, {9}})), ModelRes_Success);
  ASSERT_EQ(speed_.setValue(-1), ModelRes_Success);
  EXPECT_EQ(connection_.pendingCalls, 1);
  EXPECT_EXIT(
      exitAfterChanges([&](int count) { return speed_.setValue(count) == ModelRes_Success; }),
      testing::ExitedWithCode(0), "");
}

TEST_F(SessionCost, AChangeBesideAWatchedSubtreeMakesNoSystemCallAndAllocatesNothing) {
  ModelNode watched(1, "watched");
  ASSERT_EQ(root_.add(&watched), ModelRes_Success);
  Request request{Operation::watch, {1}};
  request.watchFlags = watchSubtree;
  ASSERT_EQ(handle(Operation::watch, payloadOf(request)), ModelRes_Success);
  EXPECT_EXIT(
      exitAfterChanges([&](int count) { return speed_.setValue(count) == ModelRes_Success; }),
      testing::ExitedWithCode(0), "");
}

TEST_F(SessionCost, AWatchOfAQuietTreeHoldsNoMemoryForItsParts) {
  constexpr unsigned count = 65'000;
  ModelNode node(1, "node");
  std::deque<ValuePart<std::uint32_t>> parts;
  std::vector<ModelPart*> children;
  for (unsigned i = 0; i < count; ++i) {
    children.push_back(&parts.emplace_back(static_cast<ModelPartId>(i), "part", i));
  }
  ASSERT_EQ(node.setChildren(children), ModelRes_Success);
  ASSERT_EQ(root_.add(&node), ModelRes_Success);
  Request request{Operation::watch, {}};
  request.watchFlags = watchSubtree;
  test_support::Allocations& allocations = test_support::allocated();
  const std::ptrdiff_t before = allocations.liveBytes;
  allocations.peakBytes = before;
  ASSERT_EQ(handle(Operation::watch, payloadOf(request)), ModelRes_Success);
  std::uint16_t type = 0;
  std::vector<std::uint8_t> event;
  unsigned events = 0;
  session_.beginEvents(true);
  while (session_.takeEvent(type, event) || session_.eventsPaused()) {
    events += event.empty() ? 0 : 1;
    event.clear();
    session_.beginEvents(true);
  }
  EXPECT_EQ(events, count + 5) << "the marks, the root, its two parts, and the others";
  constexpr std::ptrdiff_t allowed = 64 * 1024;
  EXPECT_LT(allocations.peakBytes - before, allowed);
  for (ValuePart<std::uint32_t>& part : parts) {
    ASSERT_EQ(part.setValue(0x7FFFFFFF), ModelRes_Success);
  }
  while (session_.takeEvent(type, event)) {
    event.clear();
    session_.beginEvents(true);
  }
  EXPECT_LT(allocations.liveBytes - before, allowed) << "after all changes were sent";
}

TEST(ForbiddenSystemCalls, TerminateTheProcess) {
  EXPECT_EXIT((forbidSystemCalls(), static_cast<void>(::getppid()), ::_exit(0)),
              testing::KilledBySignal(SIGSYS), "");
}

TEST(CountedAllocations, AreDetected) {
  std::vector<std::string> texts(1001);
  EXPECT_EXIT(exitAfterChanges([&texts](int count) {
                texts[static_cast<std::size_t>(count)].assign(40, 'x');
                return true;
              }),
              testing::ExitedWithCode(3), "");
}

}  // namespace
