#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/platform/modelsrv/served_tree.h"

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;

/// Runs `step` repeatedly on a thread of its own.
class Repeat {
 public:
  explicit Repeat(std::function<void()> step)
      : thread_([this, step = std::move(step)] {
          while (running_.load()) {
            step();
          }
        }) {}
  ~Repeat() {
    running_ = false;
    thread_.join();
  }
  Repeat(const Repeat&) = delete;
  Repeat& operator=(const Repeat&) = delete;

 private:
  std::atomic<bool> running_{true};
  std::thread thread_;
};

TEST(ModelThreads, MaySetValuesWhileClientsConnectReadAndDisconnect) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  std::int32_t first = 0;
  std::int32_t second = 0;
  const Repeat speeds([&] { static_cast<void>(server.speed.setValue(++first)); });
  const Repeat gains([&] {
    static_cast<void>(server.gains.setValue(static_cast<ModelPartIndex>(second % 2), second));
    static_cast<void>(server.gains.setValues({1.0 * second, 2.0 * second}));
    ++second;
  });
  const Repeat reads([&] {
    static_cast<void>(server.speed.value());
    static_cast<void>(server.gains.values());
    static_cast<void>(server.speed.findRoot());
  });
  for (int round = 0; round < 20; ++round) {
    Client client;
    ASSERT_EQ(client.connect(name), ModelRes_Success);
    ASSERT_EQ(client.subscribe(speedChain), ModelRes_Success);
    ASSERT_EQ(client.subscribe(gainsChain), ModelRes_Success);
    for (int i = 0; i < 20; ++i) {
      EXPECT_NE(client.text(speedChain), "?");
      EXPECT_NE(client.text(gainsChain), "?");
    }
    ASSERT_TRUE(client.pumpUntil([&] { return client.part.updates.size() > 10; }));
  }
}

TEST(ModelThreads, MayAddAndRemovePartsWhileOthersSetThemAndClientsRequestThem) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  ModelNode node(20, "moving");
  ValuePart<std::int32_t> inside(1, "inside");
  ASSERT_EQ(node.add(&inside), ModelRes_Success);
  Client client;
  ASSERT_EQ(client.connect(name), ModelRes_Success);
  const Repeat moves([&] {
    static_cast<void>(server.root.add(&node));
    {
      ValuePart<std::int32_t> temporary(20, "temporary", 1);
      static_cast<void>(server.drive.add(&temporary));
      static_cast<void>(temporary.setValue(2));
    }
    static_cast<void>(server.root.remove(&node));
  });
  const Repeat finds([&] { static_cast<void>(server.speed.findRoot()); });
  std::int32_t value = 0;
  const Repeat sets([&] { static_cast<void>(server.speed.setValue(++value)); });
  std::string text;
  for (int i = 0; i < 500; ++i) {
    const ModelRes result = client.save({20, 1}, text);
    ASSERT_TRUE(result == ModelRes_Success || result == ModelRes_NoSuchPart) << result;
    const ModelRes subscribed = client.subscribe({20, 1});
    ASSERT_TRUE(subscribed == ModelRes_Success || subscribed == ModelRes_NoSuchPart);
    if (subscribed == ModelRes_Success) {
      EXPECT_EQ(client.unsubscribe({20, 1}), ModelRes_Success);
    }
    client.pumpAll();
  }
}

TEST(ModelThreads, MaySetAPartWhileItIsRemovedFromTheTree) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  for (int round = 0; round < 50; ++round) {
    ModelNode node(20, "removed");
    ValuePart<std::int32_t> inside(1, "inside");
    ASSERT_EQ(node.add(&inside), ModelRes_Success);
    ASSERT_EQ(server.root.add(&node), ModelRes_Success);
    std::atomic<std::int32_t> stored{0};
    const Repeat sets([&] {
      static_cast<void>(inside.setValue(stored + 1));
      ++stored;
    });
    while (stored.load() == 0) {
      std::this_thread::yield();
    }
    ASSERT_EQ(server.root.remove(&node), ModelRes_Success);
  }
}

TEST(ModelThreads, MaySetACachedPartWhileItIsRemovedFromTheTree) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  Client client;
  ASSERT_EQ(client.connect(name), ModelRes_Success);
  for (int round = 0; round < 50; ++round) {
    ModelNode node(20, "removed");
    // Many, so that removing them takes some time.
    std::vector<std::unique_ptr<ValuePart<std::int32_t>>> parts;
    for (ModelPartId id = 0; id < 2000; ++id) {
      parts.push_back(std::make_unique<ValuePart<std::int32_t>>(id, "inside"));
      ASSERT_EQ(node.add(parts.back().get()), ModelRes_Success);
    }
    ASSERT_EQ(server.root.add(&node), ModelRes_Success);
    std::atomic<std::int32_t> stored{0};
    const Repeat sets([&] {
      static_cast<void>(parts.front()->setValue(stored + 1));
      static_cast<void>(parts.front()->findRoot());
      ++stored;
      // Most of the time this thread should neither hold the mutex nor wait for it.
      std::this_thread::yield();
    });
    for (int i = 0; i < 5; ++i) {
      EXPECT_NE(client.text({20, 0}), "?");
    }
    while (stored.load() == 0) {
      std::this_thread::yield();
    }
    ASSERT_EQ(server.root.remove(&node), ModelRes_Success);
  }
}

TEST(ModelThreads, MayDestroyAPartWhileItIsRemovedFromTheTree) {
  Server server(test_support::uniquePortName());
  for (int round = 0; round < 500; ++round) {
    auto part = std::make_unique<ValuePart<std::int32_t>>(20, "removed");
    ModelPart* const removed = part.get();
    ASSERT_EQ(server.drive.add(removed), ModelRes_Success);
    std::atomic<bool> begun{false};
    std::thread destroys([&] {
      begun = true;
      part.reset();
    });
    while (!begun) {
      std::this_thread::yield();
    }
    const ModelRes result = server.drive.remove(removed);
    EXPECT_TRUE(result == ModelRes_Success || result == ModelRes_NoSuchPart) << result;
    destroys.join();
    EXPECT_EQ(server.drive.findChild(20), nullptr);
  }
}

TEST(ModelThreads, OfAClientMayMakeRequestsWhileAnotherDispatchesEvents) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  Client client;
  ASSERT_EQ(client.connect(name), ModelRes_Success);
  ASSERT_EQ(client.subscribe(speedChain), ModelRes_Success);
  std::atomic<int> events{0};
  client.root.onEvent = [&] { ++events; };
  const Pump pump(client.manager);
  for (int i = 0; i < 500; ++i) {
    const std::lock_guard lock(client.manager.clientMutex);
    ASSERT_EQ(client.load(speedChain, std::to_string(i)), ModelRes_Success);
    ASSERT_EQ(client.text(speedChain), std::to_string(i));
  }
  while (events.load() < 2) {
    std::this_thread::yield();
  }
}

}  // namespace
