#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "modelsrv/part_description.h"
#include "tests/platform/modelsrv/served_tree.h"

// Parts whose value the server reads for each request, and who watches a part.

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;

TEST(Getter, SuppliesEachReadAndNothingIsCached) {
  const std::string port = test_support::uniquePortName();
  std::atomic<int> reads{0};
  std::atomic<ModelRes> result{ModelRes_Success};
  Server server(port, [&](Server& prepared) {
    prepared.speed.setGetter([&](std::int32_t& value) {
      value = ++reads;
      return result.load();
    });
  });
  Client client;
  ASSERT_EQ(client.connect(port), ModelRes_Success);
  std::vector<unsigned short> ids;
  ASSERT_EQ(client.childIds(driveChain, ids), ModelRes_Success);
  EXPECT_EQ(reads, 0) << "a listing does not read it";
  EXPECT_EQ(client.text(speedChain), "1");
  EXPECT_EQ(client.text(speedChain), "2");
  EXPECT_EQ(client.text(speedChain, 0), "?") << "not an array";
  std::string text;
  result.store(ModelRes_NoValue);
  EXPECT_EQ(client.save(speedChain, text), ModelRes_NoValue);
  EXPECT_EQ(text, "");
  result.store(ModelRes_Timeout);
  EXPECT_EQ(client.save(speedChain, text), ModelRes_Unreachable);
  server.speed.setGetter({});
  EXPECT_EQ(client.text(speedChain), "42");
}

TEST(Getter, LeavesAStoreToTheStoreCheck) {
  const std::string port = test_support::uniquePortName();
  std::atomic<int> device{7};
  Server server(port, [&](Server& prepared) {
    prepared.speed.setGetter([&](std::int32_t& value) {
      value = device;
      return ModelRes_Success;
    });
    prepared.speed.setStoreCheckWithReason(
        [&](const std::int32_t& value, ModelPartIndex, std::string& reason) {
          if (value < 0) {
            reason = "the device refused";
            return ModelRes_Vetoed;
          }
          device = value;
          prepared.speed.notifyChange();
          return ModelRes_Success;
        });
  });
  Client client;
  ASSERT_EQ(client.connect(port), ModelRes_Success);
  ASSERT_EQ(client.subscribe(speedChain), ModelRes_Success);
  std::string reason;
  EXPECT_EQ(client.part.at(speedChain).store("-1", false, all, reason), ModelRes_Vetoed);
  EXPECT_EQ(reason, "the device refused");
  EXPECT_EQ(client.load(speedChain, "42"), ModelRes_Success) << "the value that the part holds";
  EXPECT_EQ(device, 42);
  EXPECT_TRUE(client.pumpUntil([&] { return !client.root.updates.empty(); }));
}

TEST(WatchHandler, IsCalledWithTheFirstAndAfterTheLastSubscription) {
  const std::string port = test_support::uniquePortName();
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, true);
  std::vector<bool> calls;
  Server server(port, [&](Server& prepared) {
    prepared.speed.setWatchHandler([&](bool watched) { calls.push_back(watched); });
  });
  const auto seen = [&] {
    const KSTD::KThreadMutexLock lock(server.manager.clientMutex);
    return calls;
  };
  Client first;
  ASSERT_EQ(first.connect(port), ModelRes_Success);
  EXPECT_FALSE(server.speed.isWatched());
  ASSERT_EQ(first.subscribe(speedChain), ModelRes_Success);
  ASSERT_EQ(first.subscribe(speedChain), ModelRes_Success);
  {
    Client second;
    ASSERT_EQ(second.connect(port), ModelRes_Success);
    ASSERT_EQ(second.subscribe(speedChain), ModelRes_Success);
    EXPECT_EQ(second.unsubscribe(speedChain), ModelRes_Success);
  }
  EXPECT_EQ(seen(), std::vector<bool>{true});
  EXPECT_TRUE(server.speed.isWatched());
  EXPECT_EQ(first.unsubscribe(speedChain), ModelRes_Success);
  EXPECT_EQ(first.unsubscribe(speedChain), ModelRes_Success);
  EXPECT_EQ(seen(), (std::vector<bool>{true, false}));
  ASSERT_EQ(first.subscribe(speedChain), ModelRes_Success);
  EXPECT_EQ(server.drive.remove(&server.speed), ModelRes_Success);
  EXPECT_EQ(seen(), (std::vector<bool>{true, false, true, false}));
}

}  // namespace
