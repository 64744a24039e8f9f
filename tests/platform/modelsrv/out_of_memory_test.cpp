#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "modelsrv/source/part_access.h"
#include "modelsrv/source/session_subscriptions.h"
#include "tests/platform/modelsrv/failing_allocation.h"
#include "tests/platform/modelsrv/fake_connection.h"
#include "tests/platform/modelsrv/served_tree.h"
#include "tests/support/leak_check.h"

// The state of clients and servers after any single allocation has failed.
namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;

TEST(OutOfMemory, IsAResultOfEveryRequest) {
  using Operation = std::function<ModelRes(Client&)>;
  const std::array<Operation, 6> requests{
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
  for (const Operation& request : requests) {
    forEachAllocation([&request](int failing) {
      const std::string name = test_support::uniquePortName();
      Server server(name);
      Client client;
      EXPECT_EQ(client.connect(name), ModelRes_Success);
      static_cast<void>(client.part.at(gainsChain));
      ModelRes result = ModelRes_Success;
      const bool allocationFailed = runWithFailure(failing, [&] { result = request(client); });
      const bool failed = allocationFailed && result != ModelRes_Success;
      EXPECT_EQ(result, failed ? ModelRes_SystemError : ModelRes_Success);
      EXPECT_EQ(client.text(speedChain), "42") << "the client still works";
      return allocationFailed;
    });
  }
}

bool hasSubscribers(Server& server) {
  const std::lock_guard lock(server.manager.clientMutex);
  return internal::PartAccess::subscribersOf(server.speed) != nullptr;
}

TEST(OutOfMemory, LeavesASubscriptionOnBothSidesOrOnNone) {
  forEachAllocation([](int failing) {
    const std::string name = test_support::uniquePortName();
    Server server(name);
    Client client;
    EXPECT_EQ(client.connect(name), ModelRes_Success);
    client.pumpAll();
    static_cast<void>(client.part.at(speedChain));
    ModelRes result = ModelRes_Success;
    const bool allocationFailed = runWithFailure(
        failing, [&] { result = client.part.subscribeToServer(&client.root, 0, nullptr, all); });
    EXPECT_EQ(client.text(speedChain), "42");
    client.pumpAll();
    client.root.updates.clear();
    EXPECT_EQ(server.speed.setValue(1), ModelRes_Success);
    EXPECT_EQ(client.text(speedChain), "1");
    client.pumpAll();
    const bool subscribed = result == ModelRes_Success;
    // The server notices the end of a connection between exchanges on the next one.
    EXPECT_TRUE(test_support::eventually([&] {
      EXPECT_EQ(client.text(labelChain, all), "two words");
      return hasSubscribers(server) == subscribed;
    }));
    EXPECT_EQ(client.root.updates.size(), subscribed ? 1U : 0U);
    EXPECT_EQ(client.unsubscribe(speedChain),
              subscribed ? ModelRes_Success : ModelRes_NotSubscribed);
    return allocationFailed;
  });
}

TEST(OutOfMemory, LeavesNothingOfAFailedConnection) {
  forEachAllocation([](int failing) {
    const std::string name = test_support::uniquePortName();
    Server server(name);
    Client other;
    EXPECT_EQ(other.connect(name), ModelRes_Success);
    EXPECT_EQ(other.text(speedChain), "42");
    Client client;
    const std::set<std::string> before = test_support::openDescriptors();
    ModelRes result = ModelRes_Success;
    const bool allocationFailed = runWithFailure(failing, [&] { result = client.connect(name); });
    const bool failed = allocationFailed && result != ModelRes_Success;
    EXPECT_EQ(result, failed ? ModelRes_SystemError : ModelRes_Success);
    if (failed) {
      // The server notices the end of the connection between the stores of the other client.
      EXPECT_TRUE(test_support::eventually([&] {
        EXPECT_EQ(other.load(speedChain, "42"), ModelRes_Success);
        return test_support::openDescriptors() == before;
      }));
    }
    EXPECT_EQ(client.connect(name), ModelRes_Success);
    EXPECT_EQ(client.text(speedChain), "42");
    return allocationFailed;
  });
}

TEST(OutOfMemory, DoesNotKeepAClientFromConnectingAgain) {
  forEachAllocation([](int failing) {
    const std::string name = test_support::uniquePortName();
    auto server = std::make_unique<Server>(name);
    Client client;
    EXPECT_EQ(client.connect(name), ModelRes_Success);
    EXPECT_EQ(client.subscribe(speedChain), ModelRes_Success);
    server.reset();
    server = std::make_unique<Server>(name);
    static_cast<void>(client.part.at(gainsChain));
    ModelRes result = ModelRes_Success;
    std::vector<unsigned short> ids;
    const bool allocationFailed = runWithFailure(
        failing, [&] { result = client.root.getChildIdsFromServer(&client.part, ids); });
    const bool failed = allocationFailed && result != ModelRes_Success;
    EXPECT_EQ(result, failed ? ModelRes_SystemError : ModelRes_Success);
    EXPECT_EQ(client.text(speedChain), "42");
    client.pumpAll();
    client.root.updates.clear();
    EXPECT_EQ(server->speed.setValue(7), ModelRes_Success);
    EXPECT_EQ(client.text(speedChain), "7");
    client.pumpAll();
    EXPECT_EQ(client.root.updates.size(), 1U) << "it has renewed the subscription";
    return allocationFailed;
  });
}

/// A client that connects on a thread of its own, to a server that is not pumped yet.
class PendingConnection {
 public:
  PendingConnection() {
    server.pump.reset();
    thread_ = std::thread([this] {
      static_cast<void>(client_.connect(name));
      tried = true;
      server.manager.wake();
    });
  }
  ~PendingConnection() { thread_.join(); }
  PendingConnection(const PendingConnection&) = delete;
  PendingConnection& operator=(const PendingConnection&) = delete;

  const std::string name = test_support::uniquePortName();
  Server server{name};
  std::atomic<bool> tried{false};

 private:
  Client client_;
  std::thread thread_;
};

TEST(OutOfMemory, OfAServerThatAcceptsAClientDoesNotAffectOtherClients) {
  // A client whose hello was lost waits for its timeout; all of them wait at the same time.
  std::vector<std::unique_ptr<PendingConnection>> connections;
  forEachAllocation([&connections](int failing) {
    PendingConnection& one = *connections.emplace_back(std::make_unique<PendingConnection>());
    const bool allocationFailed = runWithFailure(failing, [&one] {
      while (!one.tried && allocationsLeft() >= 0) {
        static_cast<void>(one.server.manager.receiveEvent(1));
      }
    });
    one.server.pump.emplace(one.server.manager);
    Client second;
    EXPECT_EQ(second.connect(one.name), ModelRes_Success);
    EXPECT_EQ(second.text(speedChain), "42");
    return allocationFailed;
  });
}

TEST(OutOfMemory, DoesNotKeepAServerFromStopping) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  std::array<Client, 3> clients;
  for (Client& client : clients) {
    EXPECT_EQ(client.connect(name), ModelRes_Success);
    EXPECT_EQ(client.subscribe(speedChain), ModelRes_Success);
  }
  EXPECT_FALSE(runWithFailure(0, [&] { server.root.stop(false); })) << "a stop allocates nothing";
  EXPECT_EQ(server.root.finishActiveTerm(test_support::timeoutMilliseconds),
            EvtSrv::EvtRes_Success);
}

TEST(OutOfMemory, DoesNotKeepAClientFromDisconnecting) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  auto client = std::make_unique<Client>();
  EXPECT_EQ(client->connect(name), ModelRes_Success);
  EXPECT_EQ(client->text(speedChain), "42");
  EXPECT_FALSE(runWithFailure(0, [&] { client.reset(); })) << "disconnecting allocates nothing";
}

/// The subscriptions of one client in a server, without a client.
class ServerOutOfMemory : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(root_.add(&speed_), ModelRes_Success);
    ASSERT_EQ(root_.add(&gains_), ModelRes_Success);
  }

  std::size_t takeAll(internal::SessionSubscriptions& session) {
    std::size_t taken = 0;
    ModelPart* part = nullptr;
    ModelPartIndex index = 0;
    while (session.takeNext(part, index)) {
      ++taken;
    }
    return taken;
  }

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, true};
  ModelRoot root_{&manager_};
  ValuePart<std::int32_t> speed_{1, "speed"};
  ArrayPart<std::int32_t> gains_{2, "gains", {0, 0, 0}};
  const std::lock_guard<KSTD::KThreadMutex> lock_{manager_.clientMutex};
};

TEST_F(ServerOutOfMemory, LeavesNothingOfAFailedSubscription) {
  forEachAllocation([this](int failing) {
    FakeConnection connection;
    internal::SessionSubscriptions session(connection);
    bool failed = false;
    const bool allocationFailed = runWithFailure(failing, [&] {
      try {
        EXPECT_EQ(session.add(speed_, all), ModelRes_Success);
      } catch (const std::bad_alloc&) {
        failed = true;
      }
    });
    EXPECT_EQ(failed, allocationFailed);
    EXPECT_EQ(session.count(), failed ? 0U : 1U);
    EXPECT_EQ(speed_.setValue(speed_.value() + 1), ModelRes_Success);
    EXPECT_EQ(takeAll(session), failed ? 0U : 1U);
    EXPECT_EQ(session.cancel(speed_, all), failed ? ModelRes_NotSubscribed : ModelRes_Success);
    EXPECT_EQ(session.add(speed_, all), ModelRes_Success);
    return allocationFailed;
  });
}

TEST_F(ServerOutOfMemory, RemovesTheGetterAndTheStoreCheckOfAPart) {
  speed_.setStoreCheck([](std::int32_t, ModelPartIndex) { return ModelRes_Vetoed; });
  speed_.setGetter([](std::int32_t&) { return ModelRes_NoValue; });
  EXPECT_FALSE(runWithFailure(0, [this] { speed_.removeHooks(); })) << "nothing is allocated";
  std::ostringstream text;
  EXPECT_EQ(speed_.save(text, all), ModelRes_Success);
}

TEST_F(ServerOutOfMemory, ClosesTheConnectionThatCannotBeNotified) {
  forEachAllocation([this](int failing) {
    FakeConnection connection;
    internal::SessionSubscriptions session(connection);
    EXPECT_EQ(session.add(gains_, all), ModelRes_Success);
    const std::int32_t next = gains_.value(1) + 1;
    ModelRes result = ModelRes_DoNothing;
    const bool allocationFailed =
        runWithFailure(failing, [&] { result = gains_.setValue(1, next); });
    EXPECT_EQ(result, ModelRes_Success);
    EXPECT_EQ(gains_.value(1), next);
    EXPECT_EQ(connection.closeCalls, allocationFailed ? 1 : 0);
    EXPECT_EQ(takeAll(session), allocationFailed ? 0U : 1U);
    EXPECT_EQ(gains_.setValue(1, next + 1), ModelRes_Success);
    EXPECT_EQ(takeAll(session), 1U) << "later changes are notified";
    return allocationFailed;
  });
}

TEST_F(ServerOutOfMemory, ClosesTheConnectionWhoseSubscriptionCannotSleepOrWakeUp) {
  forEachAllocation([this](int failing) {
    FakeConnection connection;
    internal::SessionSubscriptions session(connection);
    EXPECT_EQ(session.add(speed_, all), ModelRes_Success);
    EXPECT_EQ(session.add(speed_, all), ModelRes_Success);
    ModelRes result = ModelRes_Success;
    const bool removalFailed = runWithFailure(failing, [&] { result = root_.remove(&speed_); });
    if (result != ModelRes_Success) {
      EXPECT_EQ(result, ModelRes_SystemError);
      EXPECT_EQ(root_.remove(&speed_), ModelRes_Success);
    }
    EXPECT_EQ(session.count(), connection.closeCalls == 0 ? 2U : 0U);
    const bool additionFailed = runWithFailure(failing, [&] { result = root_.add(&speed_); });
    if (result != ModelRes_Success) {
      EXPECT_EQ(result, ModelRes_SystemError);
      EXPECT_EQ(root_.add(&speed_), ModelRes_Success);
    }
    EXPECT_EQ(takeAll(session), connection.closeCalls == 0 ? 1U : 0U);
    return removalFailed || additionFailed;
  });
}

TEST_F(ServerOutOfMemory, LeavesNothingOfAFailedRenewal) {
  const std::shared_ptr<internal::SleepingSessions> sleeping =
      internal::PartAccess::sleepingSessions(root_);
  const Chain chain{7, 7};
  forEachAllocation([&](int failing) {
    FakeConnection connection;
    internal::SessionSubscriptions session(connection);
    bool failed = false;
    const bool allocationFailed = runWithFailure(failing, [&] {
      try {
        EXPECT_EQ(session.addSleeping(chain, all, sleeping), ModelRes_Success);
      } catch (const std::bad_alloc&) {
        failed = true;
      }
    });
    EXPECT_EQ(failed, allocationFailed);
    EXPECT_EQ(session.count(), failed ? 0U : 1U);
    EXPECT_EQ(session.cancelSleeping(chain, all),
              failed ? ModelRes_NotSubscribed : ModelRes_Success);
    return allocationFailed;
  });
}

TEST_F(ServerOutOfMemory, LeavesTheWholeArrayUnchanged) {
  ArrayPart<std::string> texts(3, "texts", {"a", "b"});
  ASSERT_EQ(root_.add(&texts), ModelRes_Success);
  std::vector<std::string> next;
  std::istringstream text;
  const std::array<std::function<ModelRes()>, 2> stores{
      [&] { return texts.setValues(next); }, [&] { return texts.load(text, false, all); }};
  std::size_t size = 100;
  for (const auto& store : stores) {
    forEachAllocation([&](int failing) {
      FakeConnection connection;
      internal::SessionSubscriptions session(connection);
      EXPECT_EQ(session.add(texts, all), ModelRes_Success);
      const std::vector<std::string> before = texts.values();
      size *= 2;
      next = {std::string(size, 'x'), std::string(size, 'y')};
      text = std::istringstream(next[0] + '\n' + next[1]);
      ModelRes result = ModelRes_DoNothing;
      const bool allocationFailed = runWithFailure(failing, [&] { result = store(); });
      const bool failed = result != ModelRes_Success;
      EXPECT_EQ(result, failed ? ModelRes_SystemError : ModelRes_Success);
      EXPECT_EQ(texts.values(), failed ? before : next);
      // If there is no memory for the update itself, the connection is closed.
      EXPECT_EQ(takeAll(session) + static_cast<std::size_t>(connection.closeCalls),
                failed ? 0U : 1U);
      return allocationFailed;
    });
  }
}

TEST_F(ServerOutOfMemory, LeavesTheTreeUnchanged) {
  forEachAllocation([this](int failing) {
    ModelNode group(9, "group");
    ModelNode inner(1, "inner");
    ValuePart<bool> leaf(1, "leaf");
    ValuePart<bool> other(5, "other");
    EXPECT_EQ(inner.add(&leaf), ModelRes_Success);
    EXPECT_EQ(root_.add(&group), ModelRes_Success);
    EXPECT_EQ(group.add(&other), ModelRes_Success);
    ModelRes result = ModelRes_Success;
    // Its id is lower than that of the present child, so the order of ids changes.
    bool allocationFailed = runWithFailure(failing, [&] { result = group.add(&inner); });
    EXPECT_EQ(result, allocationFailed ? ModelRes_SystemError : ModelRes_Success);
    EXPECT_EQ(inner.parent(), allocationFailed ? nullptr : &group);
    EXPECT_EQ(group.findChild(1), allocationFailed ? nullptr : &inner);
    EXPECT_EQ(group.findChild(5), &other);
    if (allocationFailed) {
      EXPECT_EQ(group.add(&inner), ModelRes_Success);
    }
    const bool removalFailed = runWithFailure(failing, [&] { result = group.remove(&inner); });
    EXPECT_EQ(result, removalFailed ? ModelRes_SystemError : ModelRes_Success);
    EXPECT_EQ(group.findChild(1), removalFailed ? &inner : nullptr);
    return allocationFailed || removalFailed;
  });
}

}  // namespace
