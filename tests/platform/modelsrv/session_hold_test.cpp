#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "modelsrv/value_parts.h"
#include "tests/platform/modelsrv/served_tree.h"

// Servers that learn of the arrival of their clients, and hold them until the tree is there.

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;

/// A server without parts at first, whose hooks record what they are called with.
class LazyServer {
 public:
  explicit LazyServer(const std::string& name) {
    EXPECT_EQ(node.add(&value), ModelRes_Success);
    ServerOptions options;
    options.arrived = [this](SessionHold hold) { arrived(std::move(hold)); };
    options.left = [this](std::size_t clients) {
      const std::lock_guard lock(mutex_);
      leftCalls_.push_back(clients);
      changed_.notify_all();
    };
    EXPECT_EQ(root.startAsServer(name, options), ModelRes_Success);
    pump.emplace(manager);
  }
  ~LazyServer() {
    pump.reset();
    root.stop(true);
  }
  LazyServer(const LazyServer&) = delete;
  LazyServer& operator=(const LazyServer&) = delete;

  /// The hold of the next client; none after `endTaking`.
  SessionHold take() {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, test_support::timeout,
                                  [this] { return !holds_.empty() || takingEnded_; }));
    if (holds_.empty()) {
      return {};
    }
    SessionHold hold = std::move(holds_.front());
    holds_.pop_front();
    return hold;
  }
  void endTaking() {
    const std::lock_guard lock(mutex_);
    takingEnded_ = true;
    changed_.notify_all();
  }
  /// Waits until the hook has said that there are so many clients.
  bool awaitLeft(std::size_t clients) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, test_support::timeout,
                             [&] { return !leftCalls_.empty() && leftCalls_.back() == clients; });
  }
  std::vector<std::size_t> leftCalls() {
    const std::lock_guard lock(mutex_);
    return leftCalls_;
  }
  /// Makes the tree if there is none. Any thread.
  void makeTree() {
    const std::lock_guard lock(manager.clientMutex);
    EXPECT_TRUE(node.parent() != nullptr || root.add(&node) == ModelRes_Success);
  }

  EvtSrv::EventPortManager manager{EvtSrv::ConBehave_Default, true};
  ModelRoot root{&manager};
  ModelNode node{1, "node"};
  ValuePart<std::int32_t> value{1, "value", 7};
  std::function<void()> onArrival;
  std::optional<Pump> pump;

 private:
  void arrived(SessionHold hold) {
    EXPECT_TRUE(hold.isInEffect());
    if (onArrival) {
      onArrival();
    }
    const std::lock_guard lock(mutex_);
    holds_.push_back(std::move(hold));
    changed_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<SessionHold> holds_;
  std::vector<std::size_t> leftCalls_;
  bool takingEnded_ = false;
};

/// Releases the holds of a server until the end of its scope: a client may need more than one
/// connection. Before that it calls `prepare` for each that is in effect.
class Releaser {
 public:
  explicit Releaser(LazyServer& server, std::function<void()> prepare = nullptr)
      : server_(server), thread_([this, prepare = std::move(prepare)] {
          while (!ending_) {
            const SessionHold hold = server_.take();
            if (hold.isInEffect() && prepare) {
              prepare();
            }
          }
        }) {}
  ~Releaser() {
    ending_ = true;
    server_.endTaking();
    thread_.join();
  }
  Releaser(const Releaser&) = delete;
  Releaser& operator=(const Releaser&) = delete;

 private:
  LazyServer& server_;
  std::atomic<bool> ending_{false};
  std::thread thread_;
};

const Chain valueChain{1, 1};

class SessionHolds : public testing::Test {
 protected:
  // Programs of other tests connect to each server whose name begins as a model server's.
  const std::string name_ = test_support::uniquePortName("Held_");
  std::unique_ptr<LazyServer> server_ = std::make_unique<LazyServer>(name_);
};

TEST_F(SessionHolds, LetAClientFindTheTreeThatItsArrivalHasMade) {
  Client client;
  ASSERT_EQ(client.connect(name_), ModelRes_Success) << "the welcome does not wait";
  SessionHold hold = server_->take();
  EXPECT_TRUE(hold.isInEffect());
  auto text = std::async(std::launch::async, [&] { return client.text(valueChain); });
  server_->makeTree();
  hold.release();
  EXPECT_FALSE(hold.isInEffect());
  EXPECT_EQ(text.get(), "7");
  hold.release();
}

TEST_F(SessionHolds, EndWhenTheyAreDestroyedOrReplaced) {
  server_->makeTree();
  Client client;
  ASSERT_EQ(client.connect(name_), ModelRes_Success);
  server_->take() = SessionHold();
  EXPECT_EQ(client.text(valueChain), "7");
  Client other;
  ASSERT_EQ(other.connect(name_), ModelRes_Success);
  SessionHold hold = server_->take();
  SessionHold moved = std::move(hold);
  EXPECT_TRUE(moved.isInEffect());
  moved = SessionHold();
  EXPECT_EQ(other.text(valueChain), "7");
}

TEST_F(SessionHolds, DoNotDelayOtherClients) {
  server_->makeTree();
  Client client;
  ASSERT_EQ(client.connect(name_), ModelRes_Success);
  SessionHold hold = server_->take();
  auto text = std::async(std::launch::async, [&] { return client.text(valueChain); });
  Client other;
  ASSERT_EQ(other.connect(name_), ModelRes_Success);
  server_->take().release();
  EXPECT_EQ(other.text(valueChain), "7");
  EXPECT_TRUE(hold.isInEffect());
  hold.release();
  EXPECT_EQ(text.get(), "7");
}

TEST_F(SessionHolds, OfAClientThatHasGoneHaveNoEffect) {
  server_->makeTree();
  auto client = std::make_unique<Client>();
  ASSERT_EQ(client->connect(name_), ModelRes_Success);
  SessionHold hold = server_->take();
  client.reset();
  ASSERT_TRUE(server_->awaitLeft(0));
  EXPECT_FALSE(hold.isInEffect());
  hold.release();
}

TEST_F(SessionHolds, EndWithTheService) {
  for (const bool atOnce : {true, false}) {
    Client client;
    ASSERT_EQ(client.connect(name_), ModelRes_Success);
    SessionHold hold = server_->take();
    auto result = std::async(std::launch::async, [&] { return client.load(valueChain, "8"); });
    server_->root.stop(atOnce);
    EXPECT_EQ(server_->root.finishActiveTerm(test_support::timeoutMilliseconds),
              EvtSrv::EvtRes_Success);
    EXPECT_FALSE(hold.isInEffect());
    // Before the request was written, or after that.
    EXPECT_THAT(result.get(), testing::AnyOf(ModelRes_NotConnected, ModelRes_OutcomeUnknown));
    EXPECT_EQ(server_->value.value(), 7);
    EXPECT_THAT(server_->leftCalls(), testing::IsEmpty());
    hold.release();
    hold = {};
    server_.reset();
    server_ = std::make_unique<LazyServer>(name_);
  }
}

TEST_F(SessionHolds, LetTheProgramStopTheServiceInsideTheHook) {
  for (const bool atOnce : {true, false}) {
    server_->onArrival = [this, atOnce] { server_->root.stop(atOnce); };
    Client client;
    // The welcome is written before the hook is called.
    ASSERT_EQ(client.connect(name_), ModelRes_Success);
    SessionHold hold = server_->take();
    EXPECT_EQ(server_->root.finishActiveTerm(test_support::timeoutMilliseconds),
              EvtSrv::EvtRes_Success);
    EXPECT_FALSE(hold.isInEffect());
    hold = {};
    server_.reset();
    server_ = std::make_unique<LazyServer>(name_);
  }
}

TEST_F(SessionHolds, EndWithTheHookThatDoesNotKeepThemAlsoIfItThrows) {
  EvtSrv::EventPortManager manager{EvtSrv::ConBehave_Default, true};
  ModelRoot root(&manager);
  ValuePart<std::int32_t> part(1, "part", 3);
  ASSERT_EQ(root.add(&part), ModelRes_Success);
  const std::string name = test_support::uniquePortName("Held_");
  bool fails = true;
  std::vector<std::size_t> leftCalls;
  ServerOptions options;
  options.arrived = [&](const SessionHold& /*hold*/) {
    if (std::exchange(fails, false)) {
      throw std::runtime_error("of the program");
    }
  };
  options.left = [&](std::size_t clients) { leftCalls.push_back(clients); };
  ASSERT_EQ(root.startAsServer(name, options), ModelRes_Success);
  Client client;
  auto connected = std::async(std::launch::async, [&] { return client.connect(name); });
  EXPECT_THROW(
      while (manager.receiveEvent(test_support::timeoutMilliseconds) == EvtSrv::EvtRes_Success){},
      std::runtime_error);
  EXPECT_EQ(connected.get(), ModelRes_Success);
  const Pump pump(manager);
  EXPECT_EQ(client.text({1}), "3") << "on a new connection";
  const std::lock_guard lock(manager.clientMutex);
  EXPECT_THAT(leftCalls, testing::ElementsAre(0));
}

TEST_F(SessionHolds, AreGivenForEachConnectionOfAClientAndKeepItsRenewalWaiting) {
  server_->makeTree();
  Client client;
  ASSERT_EQ(client.connect(name_), ModelRes_Success);
  server_->take().release();
  ASSERT_EQ(client.subscribe(valueChain), ModelRes_Success);
  server_.reset();
  // The new server makes its tree while the client has connected again and renews.
  server_ = std::make_unique<LazyServer>(name_);
  const Releaser releaser(*server_, [&] { server_->makeTree(); });
  ASSERT_TRUE(client.pumpUntil([&] {
    return !client.root.types.empty() &&
           client.root.types.back() == ModelRoot::EvtTyp_Model_Restored;
  }));
  EXPECT_THAT(client.root.updates, testing::IsEmpty()) << "the part was there when it was renewed";
  ASSERT_EQ(server_->value.setValue(9), ModelRes_Success);
  ASSERT_TRUE(client.pumpUntil([&] { return !client.root.updates.empty(); }));
  EXPECT_EQ(client.text(valueChain), "9");
}

TEST_F(SessionHolds, ReleasedWithoutATreeLetSubscriptionsSleepUntilItComes) {
  server_->makeTree();
  Client client;
  ASSERT_EQ(client.connect(name_), ModelRes_Success);
  server_->take().release();
  ASSERT_EQ(client.subscribe(valueChain), ModelRes_Success);
  server_.reset();
  server_ = std::make_unique<LazyServer>(name_);
  const Releaser releaser(*server_);
  ASSERT_TRUE(client.pumpUntil([&] {
    return !client.root.types.empty() &&
           client.root.types.back() == ModelRoot::EvtTyp_Model_Restored;
  }));
  server_->makeTree();
  ASSERT_TRUE(client.pumpUntil([&] { return !client.root.updates.empty(); }));
  EXPECT_EQ(client.text(valueChain), "7");
}

TEST_F(SessionHolds, ThatLastTooLongCostTheRequestAndNotTheConnection) {
  server_->makeTree();
  Client client;
  ASSERT_EQ(client.connect(name_), ModelRes_Success);
  SessionHold hold = server_->take();
  std::string text;
  EXPECT_EQ(client.save(valueChain, text), ModelRes_Timeout);
  EXPECT_TRUE(hold.isInEffect());
  hold.release();
  EXPECT_TRUE(test_support::eventually([&] { return client.text(valueChain) == "7"; }));
  EXPECT_THAT(server_->leftCalls(), testing::IsEmpty());
}

TEST_F(SessionHolds, OfManyClientsAreReleasedInAnyOrder) {
  constexpr std::size_t count = 64;
  std::vector<std::unique_ptr<Client>> clients;
  std::vector<SessionHold> holds;
  for (std::size_t i = 0; i < count; ++i) {
    clients.push_back(std::make_unique<Client>());
    ASSERT_EQ(clients.back()->connect(name_), ModelRes_Success);
    holds.push_back(server_->take());
  }
  // Some do not wait for the tree.
  for (std::size_t i = 0; i < count; i += 4) {
    clients[i].reset();
  }
  std::vector<std::future<std::string>> texts;
  for (std::size_t i = 0; i < count; ++i) {
    if (clients[i] != nullptr) {
      texts.push_back(std::async(std::launch::async,
                                 [&client = *clients[i]] { return client.text(valueChain); }));
    }
  }
  server_->makeTree();
  std::shuffle(holds.begin(), holds.end(), std::minstd_rand(1));
  std::thread other([&] {
    for (std::size_t i = count / 2; i < count; ++i) {
      holds[i].release();
    }
  });
  for (std::size_t i = 0; i < count / 2; ++i) {
    holds[i] = {};
  }
  other.join();
  for (auto& text : texts) {
    EXPECT_EQ(text.get(), "7");
  }
  clients.clear();
  EXPECT_TRUE(server_->awaitLeft(0));
}

TEST_F(SessionHolds, AreFollowedByTheNumberOfClientsThatAreLeft) {
  auto first = std::make_unique<Client>();
  auto second = std::make_unique<Client>();
  ASSERT_EQ(first->connect(name_), ModelRes_Success);
  ASSERT_EQ(second->connect(name_), ModelRes_Success);
  server_->take().release();
  server_->take().release();
  EXPECT_THAT(server_->leftCalls(), testing::IsEmpty());
  first.reset();
  ASSERT_TRUE(server_->awaitLeft(1));
  ASSERT_EQ(second->connect(name_), ModelRes_Success) << "a new session of the same client";
  server_->take().release();
  second.reset();
  ASSERT_TRUE(server_->awaitLeft(0));
}

// Clients come, request and go while other threads make the tree and release their holds.
TEST_F(SessionHolds, LoseNoClientInAnySchedule) {
  constexpr int clients = 6;
  constexpr int rounds = 25;
  std::atomic<int> wrong{0};
  std::optional<Releaser> first(std::in_place, *server_, [&] { server_->makeTree(); });
  std::optional<Releaser> second(std::in_place, *server_, [&] { server_->makeTree(); });
  std::vector<std::thread> threads;
  for (int i = 0; i < clients; ++i) {
    threads.emplace_back([&, i] {
      std::minstd_rand random(static_cast<unsigned>(i + 1));
      for (int n = 0; n < rounds; ++n) {
        Client client;
        if (client.connect(name_) != ModelRes_Success) {
          ++wrong;
        } else if (random() % 4 != 0) {
          wrong += client.text(valueChain) == "7" ? 0 : 1;
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  first.reset();
  second.reset();
  EXPECT_EQ(wrong, 0);
  EXPECT_TRUE(server_->awaitLeft(0));
}

}  // namespace
