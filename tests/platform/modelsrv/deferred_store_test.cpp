#include <gmock/gmock.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/platform/modelsrv/served_tree.h"

// Stores whose replies a server gives later.

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;

/// Stores whose check has deferred them, in their order.
class Stores {
 public:
  explicit Stores(Server& server) : server_(server) {}

  /// Defers the store that the caller decides about.
  ModelRes defer(std::int32_t value) {
    {
      const std::lock_guard lock(mutex_);
      stores_.emplace_back(value, server_.root.deferStore());
    }
    arrived_.notify_one();
    return ModelRes_DoNothing;
  }
  /// Waits for a store; with -1 after `close`.
  std::pair<std::int32_t, DeferredStore> take() {
    std::unique_lock lock(mutex_);
    arrived_.wait(lock, [this] { return !stores_.empty() || closed_; });
    if (stores_.empty()) {
      return {-1, DeferredStore()};
    }
    auto store = std::move(stores_.front());
    stores_.pop_front();
    return store;
  }
  /// The next one if it waits already.
  std::optional<std::pair<std::int32_t, DeferredStore>> tryTake() {
    const std::lock_guard lock(mutex_);
    if (stores_.empty()) {
      return std::nullopt;
    }
    auto store = std::move(stores_.front());
    stores_.pop_front();
    return store;
  }
  void close() {
    {
      const std::lock_guard lock(mutex_);
      closed_ = true;
    }
    arrived_.notify_all();
  }

 private:
  Server& server_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<std::pair<std::int32_t, DeferredStore>> stores_;
  bool closed_ = false;
};

class DeferredStores : public testing::Test {
 protected:
  DeferredStores() {
    EXPECT_EQ(client_.connect(name_), ModelRes_Success);
    server_.speed.setStoreCheck(
        [this](std::int32_t value, ModelPartIndex) { return stores_.defer(value); });
  }
  ~DeferredStores() override { server_.speed.removeHooks(); }

  /// What the client has of a store that the server replies to so.
  std::pair<ModelRes, std::string> store(const std::function<void(DeferredStore&)>& reply) {
    std::string reason = "none";
    auto result = std::async(std::launch::async, [&] {
      return client_.part.at(speedChain).store("7", false, all, reason);
    });
    auto [value, deferred] = stores_.take();
    EXPECT_EQ(value, 7);
    reply(deferred);
    EXPECT_FALSE(deferred.isAwaited());
    const ModelRes known = result.get();
    return {known, reason};
  }

  const std::string name_ = test_support::uniquePortName();
  Server server_{name_};
  Stores stores_{server_};
  Client client_;
};

TEST_F(DeferredStores, EndWithWhatTheProgramReplies) {
  EXPECT_EQ(store([&](DeferredStore& deferred) {
              EXPECT_TRUE(deferred.isAwaited());
              EXPECT_EQ(server_.speed.value(), 42) << "the check has not accepted it";
              EXPECT_EQ(server_.speed.setValue(8), ModelRes_Success);
              deferred.complete(ModelRes_Success, "no reason");
            }).first,
            ModelRes_Success);
  EXPECT_EQ(client_.text(speedChain), "8");
  const struct {
    ModelRes given;
    const char* reason;
    ModelRes known;
    const char* knownReason;
  } cases[] = {
      {ModelRes_Vetoed, "7 is not\neven", ModelRes_Vetoed, "7 is not?even"},
      {ModelRes_Denied, "operators only", ModelRes_Denied, "operators only"},
      {ModelRes_Unreachable, "", ModelRes_Unreachable, describe(ModelRes_Unreachable)},
      {ModelRes_OutcomeUnknown, "no word", ModelRes_OutcomeUnknown, "no word"},
      {ModelRes_NotConnected, "x", ModelRes_Unreachable, "x"},
  };
  for (const auto& expected : cases) {
    EXPECT_EQ(
        store([&](DeferredStore& deferred) { deferred.complete(expected.given, expected.reason); }),
        std::pair(expected.known, std::string(expected.knownReason)));
  }
  EXPECT_EQ(client_.text(speedChain), "8");
}

TEST_F(DeferredStores, WithoutAReplyHaveAnUnknownOutcome) {
  EXPECT_EQ(store([](DeferredStore& deferred) { deferred = DeferredStore(); }).first,
            ModelRes_OutcomeUnknown);
}

TEST_F(DeferredStores, DoNotDelayOtherClients) {
  Client other;
  ASSERT_EQ(other.connect(name_), ModelRes_Success);
  store([&](DeferredStore& deferred) {
    EXPECT_EQ(other.load(labelChain, "stored"), ModelRes_Success);
    EXPECT_EQ(other.text(labelChain), "stored");
    deferred.complete(ModelRes_Success);
  });
}

TEST_F(DeferredStores, MayBeAppliedAtOnce) {
  server_.speed.setStoreCheck([this](std::int32_t value, ModelPartIndex) {
    static_cast<void>(stores_.defer(value));
    return ModelRes_Success;
  });
  EXPECT_EQ(store([&](DeferredStore& deferred) {
              EXPECT_EQ(server_.speed.value(), 7);
              deferred.complete(ModelRes_Success);
            }).first,
            ModelRes_Success);
}

TEST_F(DeferredStores, AreThoseOfClientsAndOnlyOnce) {
  EXPECT_FALSE(server_.root.deferStore().isAwaited());
  std::vector<bool> deferred;
  server_.limited.setStoreCheck([&](std::int32_t, ModelPartIndex) {
    DeferredStore first = server_.root.deferStore();
    deferred.push_back(first.isAwaited());
    deferred.push_back(server_.root.deferStore().isAwaited());
    first.complete(ModelRes_ReadOnly);
    return ModelRes_Vetoed;
  });
  std::string reason;
  EXPECT_EQ(server_.limited.storeAsClient("5", false, all, reason), ModelRes_Vetoed);
  EXPECT_EQ(client_.load({1, 8}, "5"), ModelRes_ReadOnly);
  EXPECT_THAT(deferred, testing::ElementsAre(false, false, true, false));
}

TEST_F(DeferredStores, OfAClientThatHasGoneGetNoReply) {
  auto result = std::async(std::launch::async, [&] { return client_.load(speedChain, "7"); });
  auto [value, deferred] = stores_.take();
  server_.end();
  EXPECT_EQ(result.get(), ModelRes_OutcomeUnknown);
  EXPECT_FALSE(deferred.isAwaited());
  deferred.complete(ModelRes_Success);
}

// Clients store at once while several threads reply in any order: each gets the reply to its own
// store, and none is left.
TEST_F(DeferredStores, GetTheirOwnReplies) {
  constexpr int clients = 6;
  constexpr int storesEach = 60;
  std::vector<std::thread> repliers;
  for (unsigned i = 0; i < 3; ++i) {
    repliers.emplace_back([this, i] {
      std::minstd_rand random(i + 1);
      for (auto first = stores_.take(); first.first >= 0; first = stores_.take()) {
        // Of two that wait, the later one may be the first to get its reply.
        if (auto second = stores_.tryTake(); second && random() % 2 == 0) {
          second->second.complete(ModelRes_Vetoed, std::to_string(second->first));
          first.second.complete(ModelRes_Vetoed, std::to_string(first.first));
        } else {
          first.second.complete(ModelRes_Vetoed, std::to_string(first.first));
          if (second) {
            second->second.complete(ModelRes_Vetoed, std::to_string(second->first));
          }
        }
      }
    });
  }
  std::atomic<int> wrong{0};
  std::vector<std::thread> storers;
  for (int i = 0; i < clients; ++i) {
    storers.emplace_back([&, i] {
      Client client;
      if (client.connect(name_) != ModelRes_Success) {
        ++wrong;
        return;
      }
      for (int n = 0; n < storesEach; ++n) {
        const std::string text = std::to_string(i * storesEach + n);
        std::string reason;
        const ModelRes result = client.part.at(speedChain).store(text, false, all, reason);
        wrong += result == ModelRes_Vetoed && reason == text ? 0 : 1;
      }
    });
  }
  for (std::thread& storer : storers) {
    storer.join();
  }
  stores_.close();
  for (std::thread& replier : repliers) {
    replier.join();
  }
  EXPECT_EQ(wrong, 0);
}

}  // namespace
