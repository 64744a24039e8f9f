#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "modelsrv/source/connection_history.h"
#include "tests/platform/evtsrv/poll_loop.h"
#include "tests/platform/modelsrv/served_tree.h"

// What a client's program sees of its connection's life: Lost, Restored, and updates that go
// on, driven by nothing but the manager's poll descriptor.

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;
using namespace std::chrono_literals;
using LifeChange = internal::ConnectionHistory::Change;
using testing::ElementsAre;

constexpr unsigned started = ModelRoot::EvtTyp_Model_Started;
constexpr unsigned lost = ModelRoot::EvtTyp_Model_Lost;
constexpr unsigned restored = ModelRoot::EvtTyp_Model_Restored;

TEST(ConnectionHistory, AlternatesAndKeepsTheOrder) {
  internal::ConnectionHistory history;
  EXPECT_FALSE(history.hasPending());
  history.add(LifeChange::restored);
  EXPECT_FALSE(history.hasPending()) << "there was no loss";
  for (const LifeChange change : {LifeChange::lost, LifeChange::lost, LifeChange::restored,
                                  LifeChange::lost, LifeChange::restored, LifeChange::restored}) {
    history.add(change);
  }
  EXPECT_FALSE(history.isLost());
  for (const LifeChange change :
       {LifeChange::lost, LifeChange::restored, LifeChange::lost, LifeChange::restored}) {
    ASSERT_TRUE(history.hasPending());
    EXPECT_EQ(history.take(), change);
  }
  EXPECT_FALSE(history.hasPending());
  history.add(LifeChange::lost);
  EXPECT_TRUE(history.isLost());
  EXPECT_EQ(history.take(), LifeChange::lost);
}

class ConnectionLife : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(client_.connect(name_), ModelRes_Success);
    ASSERT_TRUE(sees(started));
    forget();
  }

  /// The events of the connection's life, without updates and started events.
  std::vector<unsigned> life() const {
    std::vector<unsigned> types;
    for (const unsigned type : client_.root.types) {
      if (type == lost || type == restored) {
        types.push_back(type);
      }
    }
    return types;
  }
  /// Dispatches until the client has an event of this type that was not there before.
  bool sees(unsigned type) {
    const auto count = [&] {
      return std::count(client_.root.types.begin(), client_.root.types.end(), type);
    };
    const auto seen = seen_[type];
    const bool isSeen = loop_.runUntil([&] { return count() > seen; });
    seen_[type] = count();
    return isSeen;
  }
  void forget() {
    client_.root.types.clear();
    client_.root.senders.clear();
    seen_.clear();
  }
  void startServer(const std::function<void(Server&)>& prepare = [](Server&) {}) {
    server_ = std::make_unique<Server>(name_, prepare);
  }

  std::string name_ = test_support::uniquePortName();
  std::unique_ptr<Server> server_ = std::make_unique<Server>(name_);
  Client client_;
  evtsrv_tests::PollLoop loop_{client_.manager.pollDescriptor(),
                               [this] { static_cast<void>(client_.manager.receiveEvent(0)); }};

 private:
  std::map<unsigned, std::ptrdiff_t> seen_;
};

TEST_F(ConnectionLife, IsLostAtOnceAndRestoredWithoutARequest) {
  server_.reset();
  ASSERT_TRUE(sees(lost));
  EXPECT_EQ(client_.root.senders.back(), name_);
  startServer();
  ASSERT_TRUE(sees(restored));
  EXPECT_THAT(client_.root.senders, testing::Each(name_));
  EXPECT_THAT(life(), ElementsAre(lost, restored));
  loop_.runUntilQuiet();
  EXPECT_THAT(life(), ElementsAre(lost, restored));
  EXPECT_EQ(client_.text(speedChain), "42");
}

TEST_F(ConnectionLife, IsRestoredWhenTheSubscriptionsAreRenewed) {
  int context = 0;
  ASSERT_EQ(client_.subscribe(speedChain, all, &context), ModelRes_Success);
  ASSERT_EQ(client_.subscribe(labelChain), ModelRes_Success);
  ASSERT_EQ(client_.subscribe(gainsChain, 1), ModelRes_Success);
  server_.reset();
  ASSERT_TRUE(sees(lost));
  startServer([](Server& server) { server.label.setSubscribable(false); });
  ASSERT_TRUE(sees(restored));
  server_->label.setSubscribable(true);
  ASSERT_EQ(server_->label.setValue("one"), ModelRes_Success);
  ASSERT_EQ(server_->gains.setValue(0, 8), ModelRes_Success);
  ASSERT_EQ(server_->gains.setValue(1, 8), ModelRes_Success);
  ASSERT_EQ(server_->speed.setValue(8), ModelRes_Success);
  ASSERT_TRUE(loop_.runUntil([&] { return client_.part.updates.size() == 2; }));
  EXPECT_EQ(client_.part.updates, (std::vector<ProxyPart::Update>{{nullptr, 1}, {&context, all}}));
  EXPECT_EQ(client_.unsubscribe(labelChain), ModelRes_Success) << "it is kept";
}

TEST_F(ConnectionLife, IsRestoredWithManySubscriptionsByBoundedDispatches) {
  constexpr int count = 3000;
  for (int i = 0; i < count; ++i) {
    ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  }
  server_.reset();
  ASSERT_TRUE(sees(lost));
  startServer();
  const int before = loop_.wakeUps();
  ASSERT_TRUE(sees(restored));
  EXPECT_GT(loop_.wakeUps() - before, count / 64) << "a dispatch sends 64 requests at most";
  for (int i = 0; i < count; ++i) {
    ASSERT_EQ(client_.unsubscribe(speedChain), ModelRes_Success);
  }
  EXPECT_EQ(client_.unsubscribe(speedChain), ModelRes_NotSubscribed);
  ASSERT_EQ(server_->speed.setValue(8), ModelRes_Success);
  forget();
  loop_.runUntilQuiet();
  EXPECT_THAT(client_.root.types, ElementsAre()) << "the server has no subscription left";
}

TEST_F(ConnectionLife, IsRestoredAfterARequestWaitedInVainForTheRenewal) {
  constexpr int count = 200;
  for (int i = 0; i < count; ++i) {
    ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  }
  server_.reset();
  startServer();
  server_->hang();
  // It opens the session and hangs then.
  std::thread opening([this] {
    while (server_->manager.receiveEvent(-1) != EvtSrv::EvtRes_Success) {
    }
  });
  std::string text;
  EXPECT_EQ(client_.save(speedChain, text), ModelRes_Timeout);
  opening.join();
  ASSERT_TRUE(sees(lost));
  server_->resume();
  ASSERT_TRUE(sees(restored));
  for (int i = 0; i < count; ++i) {
    ASSERT_EQ(client_.unsubscribe(speedChain), ModelRes_Success);
  }
}

TEST_F(ConnectionLife, CancelsASubscriptionWhoseRenewalIsUnderWay) {
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  }
  server_.reset();
  ASSERT_TRUE(sees(lost));
  startServer();
  ASSERT_TRUE(sees(started)) << "the first batch may be under way";
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(client_.unsubscribe(speedChain), ModelRes_Success);
  }
  ASSERT_TRUE(sees(restored));
  ASSERT_EQ(client_.load(speedChain, "1"), ModelRes_Success);
  forget();
  loop_.runUntilQuiet();
  EXPECT_THAT(client_.root.types, ElementsAre());
}

TEST_F(ConnectionLife, IsReportedByTheDispatcherIfARequestFindsTheLoss) {
  server_.reset();
  std::string text;
  EXPECT_EQ(client_.save(speedChain, text), ModelRes_NotConnected);
  EXPECT_THAT(life(), ElementsAre()) << "never inside a request";
  EXPECT_TRUE(loop_.isReadable());
  ASSERT_TRUE(sees(lost));
  startServer();
  EXPECT_EQ(client_.text(speedChain), "42");
  ASSERT_TRUE(sees(restored));
  EXPECT_THAT(life(), ElementsAre(lost, restored));
}

TEST_F(ConnectionLife, IsReportedInOrderIfRequestsFindEverything) {
  ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  for (int i = 0; i < 3; ++i) {
    server_.reset();
    startServer();
    EXPECT_EQ(client_.text(speedChain), "42");
  }
  EXPECT_THAT(client_.root.types, ElementsAre());
  ASSERT_EQ(server_->speed.setValue(8), ModelRes_Success);
  ASSERT_TRUE(loop_.runUntil([&] { return life().size() == 6 && !client_.root.updates.empty(); }));
  EXPECT_THAT(life(), ElementsAre(lost, restored, lost, restored, lost, restored));
  EXPECT_EQ(client_.root.types.front(), lost) << "before anything of the new connection";
}

TEST_F(ConnectionLife, IsNotReportedIfTheProgramEndsTheConnection) {
  client_.root.stop(true);
  ASSERT_EQ(client_.connect(name_), ModelRes_Success);
  ASSERT_EQ(client_.connect(name_), ModelRes_Success);
  loop_.runUntilQuiet();
  EXPECT_THAT(life(), ElementsAre());
}

TEST_F(ConnectionLife, IsNotReportedAnyMoreAfterTheProgramHasEndedTheConnection) {
  server_.reset();
  std::string text;
  EXPECT_EQ(client_.save(speedChain, text), ModelRes_NotConnected);
  startServer();
  ASSERT_EQ(client_.connect(name_), ModelRes_Success);
  loop_.runUntilQuiet();
  EXPECT_THAT(life(), ElementsAre());
  client_.root.stop(true);
  server_.reset();
  startServer();
  EXPECT_LT(loop_.runUntilQuiet(), 5);
  EXPECT_THAT(life(), ElementsAre());
}

TEST_F(ConnectionLife, HasNoReturnFromAFirstConnectionThatNeverWas) {
  Client other;
  EXPECT_EQ(other.connect(name_ + "_none"), ModelRes_NotConnected);
  Server late(name_ + "_none");
  evtsrv_tests::PollLoop loop{other.manager.pollDescriptor(),
                              [&] { static_cast<void>(other.manager.receiveEvent(0)); }};
  EXPECT_EQ(loop.runUntilQuiet(), 0);
  EXPECT_THAT(other.root.types, ElementsAre());
}

TEST_F(ConnectionLife, IsLostForeverIfTheManagerDoesNotReconnect) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  ClientRoot root(&manager);
  ASSERT_EQ(root.startAsClient(name_, ModelRoot::CachePeriod_Stop, 0), ModelRes_Success);
  evtsrv_tests::PollLoop loop{manager.pollDescriptor(),
                              [&] { static_cast<void>(manager.receiveEvent(0)); }};
  server_.reset();
  ASSERT_TRUE(loop.runUntil([&] { return !root.types.empty() && root.types.back() == lost; }));
  startServer();
  EXPECT_EQ(loop.runUntilQuiet(), 0);
  EXPECT_EQ(root.types.back(), lost);
}

TEST_F(ConnectionLife, LetsTheHandlerMakeRequests) {
  std::vector<std::string> texts;
  client_.root.onEvent = [&] {
    const unsigned type = client_.root.types.back();
    if (type == lost || type == restored) {
      texts.push_back(client_.text(speedChain));
    }
  };
  server_.reset();
  ASSERT_TRUE(sees(lost));
  startServer();
  ASSERT_TRUE(sees(restored));
  EXPECT_THAT(texts, ElementsAre("?", "42"));
}

TEST_F(ConnectionLife, LetsTheHandlerConnectToAnotherServer) {
  Server other(name_ + "_other");
  client_.root.onEvent = [&] {
    if (client_.root.types.back() == lost) {
      EXPECT_EQ(client_.connect(name_ + "_other"), ModelRes_Success);
    }
  };
  server_.reset();
  ASSERT_TRUE(sees(started));
  startServer();
  loop_.runUntilQuiet();
  EXPECT_THAT(life(), ElementsAre(lost));
}

TEST_F(ConnectionLife, LetsTheHandlerDestroyTheRoot) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, true);
  auto root = std::make_unique<ClientRoot>(&manager);
  ASSERT_EQ(root->startAsClient(name_, ModelRoot::CachePeriod_Stop, 0), ModelRes_Success);
  class DestroyingRoot : public ClientRoot {
   public:
    using ClientRoot::ClientRoot;
    unsigned receiveModelEvent(const char*, unsigned type, EvtSrv::MemoryHolder*,
                               EvtSrv::MemoryHolder*) override {
      if (type == lost) {
        self->reset();
      }
      return EvtSrv::EvtRes_Success;
    }
    std::unique_ptr<DestroyingRoot>* self = nullptr;
  };
  auto destroying = std::make_unique<DestroyingRoot>(&manager);
  destroying->self = &destroying;
  ASSERT_EQ(destroying->startAsClient(name_, ModelRoot::CachePeriod_Stop, 0), ModelRes_Success);
  server_.reset();
  evtsrv_tests::PollLoop loop{manager.pollDescriptor(),
                              [&] { static_cast<void>(manager.receiveEvent(0)); }};
  ASSERT_TRUE(loop.runUntil([&] { return destroying == nullptr && root->types.back() == lost; }));
  startServer();
  ASSERT_TRUE(
      loop.runUntil([&] { return testing::Value(root->types, testing::Contains(restored)); }));
}

TEST_F(ConnectionLife, IsTheSameForSeveralRootsOfAManager) {
  ClientRoot second(&client_.manager);
  ASSERT_EQ(second.startAsClient(name_, ModelRoot::CachePeriod_Stop, 0), ModelRes_Success);
  server_.reset();
  ASSERT_TRUE(loop_.runUntil([&] { return life().size() == 1 && second.types.back() == lost; }));
  startServer();
  ASSERT_TRUE(loop_.runUntil([&] {
    return life().size() == 2 && testing::Value(second.types, testing::Contains(restored));
  }));
}

TEST_F(ConnectionLife, LeavesRequestsOfAnotherThreadAlone) {
  ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  Pump pump(client_.manager);
  std::string text;
  for (int i = 0; i < 10; ++i) {
    server_.reset();
    EXPECT_EQ(client_.save(speedChain, text), ModelRes_NotConnected);
    startServer();
    EXPECT_EQ(client_.save(speedChain, text), ModelRes_Success);
    EXPECT_EQ(text, "42");
  }
}

}  // namespace
