#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/platform/modelsrv/served_tree.h"

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;

using Updates = std::vector<std::pair<Chain, ModelPartIndex>>;

class Reconnection : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(client_.connect(name_), ModelRes_Success); }

  void restartServer() {
    server_.reset();
    server_ = std::make_unique<Server>(name_);
  }

  std::string name_ = test_support::uniquePortName();
  std::unique_ptr<Server> server_ = std::make_unique<Server>(name_);
  Client client_;
};

TEST_F(Reconnection, IsTriedByEachRequestAndFailsAtOnceWithoutAServer) {
  EXPECT_EQ(client_.text(speedChain), "42");
  server_.reset();
  for (int i = 0; i < 200; ++i) {
    std::string text;
    ASSERT_EQ(client_.save(speedChain, text), ModelRes_NotConnected);
  }
  server_ = std::make_unique<Server>(name_);
  EXPECT_EQ(client_.text(speedChain), "42");
}

TEST_F(Reconnection, RenewsSubscriptions) {
  int context = 0;
  ASSERT_EQ(client_.subscribe(speedChain, all, &context), ModelRes_Success);
  ASSERT_EQ(client_.subscribe(gainsChain, 1), ModelRes_Success);
  restartServer();
  EXPECT_EQ(client_.text(speedChain), "42");
  ASSERT_EQ(server_->gains.setValue(0, 8), ModelRes_Success);
  ASSERT_EQ(server_->gains.setValue(1, 8), ModelRes_Success);
  ASSERT_EQ(server_->speed.setValue(8), ModelRes_Success);
  ASSERT_TRUE(client_.pumpUntil([&] { return client_.part.updates.size() == 2; }));
  EXPECT_EQ(client_.root.updates, (Updates{{gainsChain, 1}, {speedChain, all}}));
  EXPECT_EQ(client_.part.updates, (std::vector<ProxyPart::Update>{{nullptr, 1}, {&context, all}}));
}

TEST_F(Reconnection, RenewsDoubleSubscriptions) {
  ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  restartServer();
  EXPECT_EQ(client_.unsubscribe(speedChain), ModelRes_Success);
  ASSERT_EQ(client_.load(speedChain, "1"), ModelRes_Success);
  ASSERT_TRUE(client_.pumpUntil([&] { return !client_.root.updates.empty(); }));
  EXPECT_EQ(client_.unsubscribe(speedChain), ModelRes_Success);
  EXPECT_EQ(client_.unsubscribe(speedChain), ModelRes_NotSubscribed);
}

/// Three subscriptions, of which a restarted server has rejected the second.
class RejectedRenewal : public Reconnection {
 protected:
  void SetUp() override {
    Reconnection::SetUp();
    ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
    ASSERT_EQ(client_.subscribe(labelChain), ModelRes_Success);
    ASSERT_EQ(client_.subscribe(gainsChain), ModelRes_Success);
    server_.reset();
    server_ = std::make_unique<Server>(name_,
                                       [](Server& server) { server.label.setSubscribable(false); });
    ASSERT_EQ(client_.text(speedChain), "42");
    server_->label.setSubscribable(true);
    ASSERT_EQ(server_->label.setValue("one"), ModelRes_Success);
    ASSERT_EQ(server_->speed.setValue(1), ModelRes_Success);
    ASSERT_TRUE(client_.pumpUntil([&] { return !client_.root.updates.empty(); }));
    ASSERT_EQ(client_.root.updates, (Updates{{speedChain, all}}));
  }
};

TEST_F(RejectedRenewal, IsTriedAgainAtTheNextConnection) {
  restartServer();
  ASSERT_EQ(client_.text(speedChain), "42");
  ASSERT_EQ(server_->label.setValue("two"), ModelRes_Success);
  ASSERT_TRUE(client_.pumpUntil([&] { return client_.root.updates.size() == 2; }));
  EXPECT_EQ(client_.root.updates.back(), (std::pair{labelChain, all}));
  EXPECT_EQ(client_.unsubscribe(labelChain), ModelRes_Success);
  EXPECT_EQ(client_.unsubscribe(labelChain), ModelRes_NotSubscribed);
}

TEST_F(RejectedRenewal, CanBeCancelledAsTheOthers) {
  EXPECT_EQ(client_.unsubscribe(labelChain), ModelRes_Success);
  EXPECT_EQ(client_.unsubscribe(labelChain), ModelRes_NotSubscribed);
  EXPECT_EQ(client_.unsubscribe(speedChain), ModelRes_Success);
  EXPECT_EQ(client_.unsubscribe(gainsChain), ModelRes_Success);
  restartServer();
  ASSERT_EQ(client_.text(speedChain), "42");
  ASSERT_EQ(server_->label.setValue("two"), ModelRes_Success);
  EXPECT_EQ(client_.text(labelChain), "two");
  client_.pumpAll();
  EXPECT_EQ(client_.root.updates.size(), 1U);
}

TEST_F(Reconnection, CancelsWithoutAServer) {
  ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  server_.reset();
  EXPECT_EQ(client_.unsubscribe(speedChain), ModelRes_Success);
  EXPECT_EQ(client_.unsubscribe(speedChain), ModelRes_NotSubscribed);
  server_ = std::make_unique<Server>(name_);
  EXPECT_EQ(client_.text(speedChain), "42");
  ASSERT_EQ(server_->speed.setValue(1), ModelRes_Success);
  EXPECT_EQ(client_.text(speedChain), "1");
  client_.pumpAll();
  EXPECT_EQ(client_.root.updates, Updates{});
}

TEST_F(Reconnection, DoesNotHappenIfTheManagerDoesNotReconnect) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  ModelRoot root(&manager);
  ProxyPart part(root);
  ASSERT_EQ(root.add(&part), ModelRes_Success);
  ASSERT_EQ(root.startAsClient(name_, ModelRoot::CachePeriod_Stop, 0), ModelRes_Success);
  restartServer();
  std::ostringstream text;
  EXPECT_EQ(part.at(speedChain).save(text, all), ModelRes_NotConnected);
  EXPECT_EQ(part.at(speedChain).save(text, all), ModelRes_NotConnected);
  EXPECT_EQ(root.startAsClient(name_, ModelRoot::CachePeriod_Stop, 0), ModelRes_Success);
  EXPECT_EQ(part.at(speedChain).save(text, all), ModelRes_Success);
}

TEST_F(Reconnection, DoesNotHappenIfTheServerHangsAndFurtherRequestsFailAtOnce) {
  ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  server_->pump.reset();
  std::string text;
  EXPECT_EQ(client_.save(speedChain, text), ModelRes_Timeout);
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(client_.save(speedChain, text), ModelRes_Timeout);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  EXPECT_EQ(client_.unsubscribe(speedChain), ModelRes_Timeout)
      << "the server may still process it, so it is kept";
  server_->pump.emplace(server_->manager);
  ASSERT_EQ(server_->speed.setValue(77), ModelRes_Success);
  ASSERT_TRUE(client_.pumpUntil([&] { return !client_.root.updates.empty(); }));
  EXPECT_EQ(client_.text(speedChain), "77");
  EXPECT_EQ(client_.unsubscribe(speedChain), ModelRes_Success);
}

TEST(SleepingSubscriptionsOfAClient, OutlastAPartThatIsTakenOutAndPutBack) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  Client client;
  ASSERT_EQ(client.connect(name), ModelRes_Success);
  ASSERT_EQ(client.subscribe(labelChain), ModelRes_Success);
  ASSERT_EQ(server.drive.remove(&server.label), ModelRes_Success);
  EXPECT_EQ(client.subscribe(labelChain), ModelRes_NoSuchPart);
  ASSERT_EQ(server.drive.add(&server.label), ModelRes_Success);
  ASSERT_TRUE(client.pumpUntil([&] { return client.root.updates.size() == 1; }));
  ASSERT_EQ(server.label.setValue("new"), ModelRes_Success);
  ASSERT_TRUE(client.pumpUntil([&] { return client.root.updates.size() == 2; }));
  ASSERT_EQ(server.root.remove(&server.drive), ModelRes_Success);
  EXPECT_EQ(client.unsubscribe(labelChain), ModelRes_Success);
  EXPECT_EQ(client.unsubscribe(labelChain), ModelRes_NotSubscribed);
}

TEST(SleepingSubscriptionsOfAClient, DeliverWhenThePartAppearsOnARestartedServer) {
  const std::string name = test_support::uniquePortName();
  auto server = std::make_unique<Server>(name);
  Client client;
  ASSERT_EQ(client.connect(name), ModelRes_Success);
  ASSERT_EQ(client.subscribe(labelChain), ModelRes_Success);
  ASSERT_EQ(client.subscribe(gainsChain, 1), ModelRes_Success);
  server.reset();
  server = std::make_unique<Server>(name, [](Server& restarted) {
    ASSERT_EQ(restarted.drive.remove(&restarted.label), ModelRes_Success);
    ASSERT_EQ(restarted.drive.remove(&restarted.gains), ModelRes_Success);
  });
  ASSERT_EQ(client.text(speedChain), "42");
  ASSERT_EQ(server->drive.add(&server->label), ModelRes_Success);
  ASSERT_TRUE(client.pumpUntil([&] { return client.root.updates.size() == 1; }));
  ASSERT_EQ(server->label.setValue("new"), ModelRes_Success);
  ASSERT_TRUE(client.pumpUntil([&] { return client.root.updates.size() == 2; }));
  EXPECT_EQ(client.unsubscribe(gainsChain), ModelRes_Success);
  ASSERT_EQ(server->drive.add(&server->gains), ModelRes_Success);
  ASSERT_EQ(server->label.setValue("last"), ModelRes_Success);
  ASSERT_TRUE(client.pumpUntil([&] { return client.root.updates.size() == 3; }));
  EXPECT_EQ(client.root.updates, (Updates(3, {labelChain, all})));
}

}  // namespace
