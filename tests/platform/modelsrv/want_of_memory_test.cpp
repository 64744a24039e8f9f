#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "modelsrv/source/part_access.h"
#include "modelsrv/source/session_subscriptions.h"
#include "tests/platform/modelsrv/fake_connection.h"
#include "tests/platform/modelsrv/served_tree.h"

// What is left where any one allocation is refused.

namespace {

/// How many allocations of this thread succeed before one is refused; below 0: all.
thread_local int allocationsLeft = -1;

}  // namespace

void* operator new(std::size_t size) {
  const bool refused = allocationsLeft == 0;
  if (allocationsLeft >= 0)
    --allocationsLeft;
  if (void* const memory = refused ? nullptr : std::malloc(size > 0 ? size : 1))
    return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;

/// Runs `operation` with allocation number `refused` refused; tells whether it came
/// to that.
bool runShortOfMemory(int refused, const std::function<void()>& operation) {
  allocationsLeft = refused;
  operation();
  const bool wasRefused = allocationsLeft < 0;
  allocationsLeft = -1;
  return wasRefused;
}

/// Calls `attempt(refused)` for the first, the second ... allocation that is refused,
/// until it says that nothing was.
void forEachAllocation(const std::function<bool(int refused)>& attempt) {
  int refused = 0;
  while (attempt(refused) && !testing::Test::HasFailure())
    ++refused;
  EXPECT_GT(refused, 0) << "nothing was allocated";
}

TEST(WantOfMemory, IsAResultOfWhatAClientAsks) {
  using Question = std::function<ModelRes(Client&)>;
  const std::array<Question, 6> questions{
      [](Client& client) {
        std::vector<unsigned short> ids;
        return client.root.getChildIdsFromServer(&client.part, ids);
      },
      [](Client& client) {
        std::vector<std::string> names;
        return client.root.getChildNamesFromServer(&client.part, names);
      },
      [](Client& client) {
        std::vector<std::string> names;
        return client.root.getElementNamesFromServer(&client.part, names);
      },
      [](Client& client) {
        unsigned short sum = 0;
        return client.root.getElementSumFromServer(&client.part, sum);
      },
      [](Client& client) {
        std::ostringstream text;
        return client.part.save(text, 0);
      },
      [](Client& client) { return client.part.subscribeToServer(&client.root, 0, nullptr, all); },
  };
  for (const Question& question : questions) {
    forEachAllocation([&question](int refused) {
      const std::string name = test_support::uniquePortName();
      Server server(name);
      Client client;
      EXPECT_EQ(client.connect(name), ModelRes_Success);
      (void)client.part.at(gainsChain);
      ModelRes result = ModelRes_Success;
      const bool wasRefused = runShortOfMemory(refused, [&] { result = question(client); });
      const bool failed = wasRefused && result != ModelRes_Success;
      EXPECT_EQ(result, failed ? ModelRes_SystemError : ModelRes_Success);
      EXPECT_EQ(client.text(speedChain), "42") << "the client goes on";
      return wasRefused;
    });
  }
}

bool hasSubscribers(Server& server) {
  const std::lock_guard lock(server.manager.clientMutex);
  return internal::PartAccess::subscribers(server.speed) != nullptr;
}

TEST(WantOfMemory, LeavesASubscriptionOnBothSidesOrOnNone) {
  forEachAllocation([](int refused) {
    const std::string name = test_support::uniquePortName();
    Server server(name);
    Client client;
    EXPECT_EQ(client.connect(name), ModelRes_Success);
    client.pumpAll();
    (void)client.part.at(speedChain);
    ModelRes result = ModelRes_Success;
    const bool wasRefused = runShortOfMemory(
        refused, [&] { result = client.part.subscribeToServer(&client.root, 0, nullptr, all); });
    EXPECT_EQ(client.text(speedChain), "42");
    client.pumpAll();
    client.root.updates.clear();
    EXPECT_EQ(server.speed.setValue(1), ModelRes_Success);
    EXPECT_EQ(client.text(speedChain), "1");
    client.pumpAll();
    const bool subscribed = result == ModelRes_Success;
    // The end of a connection is noticed between the exchanges on the next one.
    constexpr int patience = 1000;
    for (int i = 0; !subscribed && hasSubscribers(server) && i < patience; ++i)
      EXPECT_EQ(client.text(labelChain, all), "two words");
    EXPECT_EQ(hasSubscribers(server), subscribed);
    EXPECT_EQ(client.root.updates.size(), subscribed ? 1U : 0U);
    EXPECT_EQ(client.unsubscribe(speedChain),
              subscribed ? ModelRes_Success : ModelRes_NotSubscribed);
    return wasRefused;
  });
}

/// One client's subscriptions in a server, without a client.
class WantOfMemoryOfTheServer : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(root_.add(&speed_), ModelRes_Success);
    ASSERT_EQ(root_.add(&gains_), ModelRes_Success);
  }

  std::size_t takeAll(internal::SessionSubscriptions& session) {
    std::size_t taken = 0;
    ModelPart* part = nullptr;
    ModelPartIndex index = 0;
    while (session.next(part, index))
      ++taken;
    return taken;
  }

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, true};
  ModelRoot root_{&manager_};
  ValuePart<std::int32_t> speed_{1, "speed"};
  ArrayPart<std::int32_t> gains_{2, "gains", {0, 0, 0}};
};

TEST_F(WantOfMemoryOfTheServer, LeavesNothingOfASubscription) {
  forEachAllocation([this](int refused) {
    FakeConnection connection;
    internal::SessionSubscriptions session(connection);
    bool failed = false;
    const bool wasRefused = runShortOfMemory(refused, [&] {
      try {
        EXPECT_EQ(session.add(speed_, all), ModelRes_Success);
      } catch (const std::bad_alloc&) {
        failed = true;
      }
    });
    EXPECT_EQ(failed, wasRefused);
    EXPECT_EQ(session.count(), failed ? 0U : 1U);
    EXPECT_EQ(speed_.setValue(speed_.value() + 1), ModelRes_Success);
    EXPECT_EQ(takeAll(session), failed ? 0U : 1U);
    EXPECT_EQ(session.take(speed_, all), failed ? ModelRes_NotSubscribed : ModelRes_Success);
    EXPECT_EQ(session.add(speed_, all), ModelRes_Success);
    return wasRefused;
  });
}

TEST_F(WantOfMemoryOfTheServer, EndsTheConnectionThatCannotBeTold) {
  forEachAllocation([this](int refused) {
    FakeConnection connection;
    internal::SessionSubscriptions session(connection);
    EXPECT_EQ(session.add(gains_, all), ModelRes_Success);
    const std::int32_t next = gains_.value(1) + 1;
    ModelRes result = ModelRes_DoNothing;
    const bool wasRefused = runShortOfMemory(refused, [&] { result = gains_.setValue(1, next); });
    EXPECT_EQ(result, ModelRes_Success);
    EXPECT_EQ(gains_.value(1), next);
    EXPECT_EQ(connection.brokenOff, wasRefused ? 1 : 0);
    EXPECT_EQ(takeAll(session), wasRefused ? 0U : 1U);
    EXPECT_EQ(gains_.setValue(1, next + 1), ModelRes_Success);
    EXPECT_EQ(takeAll(session), 1U) << "what comes later is told";
    return wasRefused;
  });
}

TEST_F(WantOfMemoryOfTheServer, LeavesTheTreeAsItWas) {
  forEachAllocation([this](int refused) {
    ModelNode group(9, "group");
    ModelNode inner(1, "inner");
    ValuePart<bool> leaf(1, "leaf");
    ValuePart<bool> other(5, "other");
    EXPECT_EQ(inner.add(&leaf), ModelRes_Success);
    EXPECT_EQ(root_.add(&group), ModelRes_Success);
    EXPECT_EQ(group.add(&other), ModelRes_Success);
    ModelRes result = ModelRes_Success;
    // Its id is below that of the one that is there.
    bool wasRefused = runShortOfMemory(refused, [&] { result = group.add(&inner); });
    EXPECT_EQ(result, wasRefused ? ModelRes_SystemError : ModelRes_Success);
    EXPECT_EQ(inner.parent(), wasRefused ? nullptr : &group);
    EXPECT_EQ(group.findChild(1), wasRefused ? nullptr : &inner);
    EXPECT_EQ(group.findChild(5), &other);
    if (wasRefused) {
      EXPECT_EQ(group.add(&inner), ModelRes_Success);
    }
    const bool removalRefused = runShortOfMemory(refused, [&] { result = group.remove(&inner); });
    EXPECT_EQ(result, removalRefused ? ModelRes_SystemError : ModelRes_Success);
    EXPECT_EQ(group.findChild(1), removalRefused ? &inner : nullptr);
    return wasRefused || removalRefused;
  });
}

}  // namespace
