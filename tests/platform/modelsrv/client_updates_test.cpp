#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/platform/modelsrv/served_tree.h"

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;

using Updates = std::vector<std::pair<Chain, ModelPartIndex>>;

class ClientUpdatesTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(client_.connect(name_), ModelRes_Success); }

  /// Everything that has been written for the client so far: what a reply
  /// overtakes is written before it, or right behind it where the reply's own
  /// request made the change.
  Updates takeUpdates() {
    EXPECT_EQ(client_.load(markChain_, std::to_string(++stamp_)), ModelRes_Success);
    const auto marked = [this] {
      return !client_.root.updates.empty() && client_.root.updates.back().first == markChain_;
    };
    EXPECT_TRUE(client_.pumpUntil(marked));
    Updates updates = std::exchange(client_.root.updates, {});
    if (!updates.empty()) {
      updates.pop_back();
    }
    return updates;
  }

  /// From then on `takeUpdates` may be called.
  void subscribeMark() { ASSERT_EQ(client_.subscribe(markChain_), ModelRes_Success); }

  const Chain markChain_{1, 12};
  int stamp_ = 1000;
  std::string name_ = test_support::uniquePortName();
  Server server_{name_};
  Client client_;
};

TEST_F(ClientUpdatesTest, ReachTheSubscribingPartWithItsContext) {
  int context = 0;
  ASSERT_EQ(client_.subscribe(gainsChain, 1, &context), ModelRes_Success);
  ASSERT_EQ(server_.gains.setValue(1, 5), ModelRes_Success);
  ASSERT_TRUE(client_.pumpUntil([&] { return !client_.part.told.empty(); }));
  EXPECT_EQ(client_.part.told, (std::vector<ProxyPart::Told>{{&context, 1}}));
  EXPECT_EQ(client_.root.updates, (Updates{{gainsChain, 1}}));
  EXPECT_EQ(client_.root.senders.back(), name_);
}

TEST_F(ClientUpdatesTest, ReachTheStoringClientToo) {
  ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  ASSERT_EQ(client_.load(speedChain, "7"), ModelRes_Success);
  ASSERT_TRUE(client_.pumpUntil([&] { return !client_.root.updates.empty(); }));
  EXPECT_EQ(client_.root.updates, (Updates{{speedChain, all}}));
}

TEST_F(ClientUpdatesTest, ComeOnlyOfWhatChangedAndWasSubscribed) {
  subscribeMark();
  ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  ASSERT_EQ(client_.load(speedChain, "42"), ModelRes_Success);
  ASSERT_EQ(server_.speed.setValue(42), ModelRes_Success);
  ASSERT_EQ(server_.label.setValue("changed"), ModelRes_Success);
  ASSERT_EQ(client_.load(speedChain, "x"), ModelRes_BadText);
  EXPECT_EQ(takeUpdates(), Updates{});
}

TEST_F(ClientUpdatesTest, OfADoubledSubscriptionComeOnceAndEndWithTheSecondCancellation) {
  subscribeMark();
  ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  ASSERT_EQ(client_.load(speedChain, "1"), ModelRes_Success);
  EXPECT_EQ(takeUpdates(), (Updates{{speedChain, all}}));
  ASSERT_EQ(client_.unsubscribe(speedChain), ModelRes_Success);
  ASSERT_EQ(client_.load(speedChain, "2"), ModelRes_Success);
  EXPECT_EQ(takeUpdates(), (Updates{{speedChain, all}}));
  ASSERT_EQ(client_.unsubscribe(speedChain), ModelRes_Success);
  ASSERT_EQ(client_.load(speedChain, "3"), ModelRes_Success);
  EXPECT_EQ(takeUpdates(), Updates{});
  EXPECT_EQ(client_.unsubscribe(speedChain), ModelRes_NotSubscribed);
}

TEST_F(ClientUpdatesTest, ThatWereUnderWayWhenCancelledAreDropped) {
  subscribeMark();
  ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  ASSERT_EQ(server_.speed.setValue(1), ModelRes_Success);
  ASSERT_EQ(client_.unsubscribe(speedChain), ModelRes_Success);
  EXPECT_EQ(takeUpdates(), Updates{});
}

TEST_F(ClientUpdatesTest, EndWhereTheSubscribingPartIsRemovedOrDestroyed) {
  subscribeMark();
  auto other = std::make_unique<ProxyPart>(client_.root);
  ASSERT_EQ(client_.root.add(other.get()), ModelRes_Success);
  for (const bool destroy : {false, true}) {
    ASSERT_EQ(other->at(speedChain).subscribeToServer(&client_.root, 0, nullptr, all),
              ModelRes_Success);
    ASSERT_EQ(other->at(gainsChain).subscribeToServer(&client_.root, 0, nullptr, 0),
              ModelRes_Success);
    ASSERT_EQ(server_.speed.setValue(destroy ? 1 : 2), ModelRes_Success);
    ASSERT_TRUE(client_.pumpUntil([&] { return !other->told.empty(); }));
    client_.root.updates.clear();
    other->told.clear();
    if (destroy) {
      other.reset();
    } else {
      ASSERT_EQ(client_.root.remove(other.get()), ModelRes_Success);
      EXPECT_EQ(other->at(speedChain).subscribeToServer(&client_.root, 0, nullptr, all),
                ModelRes_BadArgument);
      ASSERT_EQ(client_.root.add(other.get()), ModelRes_Success);
    }
    ASSERT_EQ(server_.speed.setValue(destroy ? 3 : 4), ModelRes_Success);
    ASSERT_EQ(server_.gains.setValue(0, destroy ? 3 : 4), ModelRes_Success);
    EXPECT_EQ(takeUpdates(), Updates{});
  }
}

TEST_F(ClientUpdatesTest, EndWhereTheServersPartIsRemoved) {
  subscribeMark();
  ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  ASSERT_EQ(server_.drive.remove(&server_.speed), ModelRes_Success);
  ASSERT_EQ(server_.speed.setValue(1), ModelRes_Success);
  EXPECT_EQ(takeUpdates(), Updates{});
  EXPECT_EQ(client_.text(speedChain), "?");
  EXPECT_EQ(client_.unsubscribe(speedChain), ModelRes_Success);
  ASSERT_EQ(server_.drive.add(&server_.speed), ModelRes_Success);
  EXPECT_EQ(client_.text(speedChain), "1");
  EXPECT_EQ(client_.subscribe(speedChain), ModelRes_Success);
}

TEST_F(ClientUpdatesTest, LetTheirHandlerMakeRequests) {
  std::string seen;
  client_.root.onEvent = [&] {
    if (!client_.root.updates.empty()) {
      seen = client_.text(speedChain);
    }
  };
  ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  ASSERT_EQ(server_.speed.setValue(9), ModelRes_Success);
  ASSERT_TRUE(client_.pumpUntil([&] { return !seen.empty(); }));
  EXPECT_EQ(seen, "9");
}

TEST_F(ClientUpdatesTest, LetTheirHandlerStopAndConnectAgain) {
  bool restarted = false;
  client_.root.onEvent = [&] {
    if (client_.root.updates.empty() || restarted) {
      return;
    }
    client_.root.stop(true);
    restarted = client_.connect(name_) == ModelRes_Success;
  };
  ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  ASSERT_EQ(server_.speed.setValue(9), ModelRes_Success);
  ASSERT_TRUE(client_.pumpUntil([&] { return restarted; }));
  EXPECT_EQ(client_.text(speedChain), "9");
  EXPECT_TRUE(client_.part.told.empty()) << "the stop ended the subscription";
}

TEST_F(ClientUpdatesTest, ForAClientThatTakesNothingStayBoundedAndTellOfTheLastValues) {
  ModelNode many(2, "many");
  std::vector<std::unique_ptr<ValuePart<std::int32_t>>> parts;
  constexpr ModelPartId partCount = 2000;
  ASSERT_EQ(server_.root.add(&many), ModelRes_Success);
  for (ModelPartId id = 0; id < partCount; ++id) {
    parts.push_back(std::make_unique<ValuePart<std::int32_t>>(id, "", -1));
    ASSERT_EQ(many.add(parts.back().get()), ModelRes_Success);
    ASSERT_EQ(client_.subscribe({2, id}), ModelRes_Success);
  }
  subscribeMark();
  for (std::int32_t i = 0; i < 100000; ++i) {
    ASSERT_EQ(parts[static_cast<std::size_t>(i) % partCount]->setValue(i), ModelRes_Success);
  }
  const Updates updates = takeUpdates();
  EXPECT_LT(updates.size(), 20000U) << "what the pipe took, and one for each part";
  std::vector<bool> told(partCount);
  for (const auto& [chain, index] : updates) {
    told[chain[1]] = true;
  }
  EXPECT_EQ(std::count(told.begin(), told.end(), true), partCount);
  for (const ModelPartId id : {ModelPartId{0}, ModelPartId{partCount - 1}}) {
    EXPECT_EQ(client_.text({2, id}), std::to_string(100000 - partCount + id));
  }
}

TEST_F(ClientUpdatesTest, OfSeveralClientsAreApart) {
  Client other;
  ASSERT_EQ(other.connect(name_), ModelRes_Success);
  ASSERT_EQ(other.subscribe(speedChain), ModelRes_Success);
  subscribeMark();
  ASSERT_EQ(client_.load(speedChain, "3"), ModelRes_Success);
  ASSERT_TRUE(other.pumpUntil([&] { return !other.root.updates.empty(); }));
  EXPECT_EQ(other.root.updates, (Updates{{speedChain, all}}));
  EXPECT_EQ(takeUpdates(), Updates{});
}

/// Does to its root what a program may do in the middle of an update.
class Meddler : public ModelPart {
 public:
  explicit Meddler(ModelPartId id) : ModelPart(id) {}
  ModelRes update(void* /*context*/, unsigned short /*index*/) override {
    ++told;
    if (meddle) {
      meddle();
    }
    return ModelRes_Success;
  }
  int told = 0;
  std::function<void()> meddle;
};

/// A client's own root with two parts that stand for /drive/speed.
struct MeddledClient {
  explicit MeddledClient(const std::string& name) {
    EXPECT_EQ(root->startAsClient(name, ModelRoot::CachePeriod_Stop, EvtSrv::ConBehave_Void),
              ModelRes_Success);
    for (ModelPart* part : {static_cast<ModelPart*>(&one), static_cast<ModelPart*>(&other)}) {
      EXPECT_EQ(root->add(part), ModelRes_Success);
      EXPECT_EQ(part->subscribeToServer(root.get(), 0, nullptr, all), ModelRes_Success);
    }
    EXPECT_EQ(manager.receiveEvent(-1), EvtSrv::EvtRes_Success);
  }

  /// Stands for the part twice, each time as another object.
  class Speed : public Meddler {
   public:
    explicit Speed(std::unique_ptr<ModelRoot>& root) : Meddler(ModelPartId_Void), root_(root) {}
    ModelPartId getId() override { return ModelPartId(speedChain[--level_]); }
    ModelPart* getParentNode() override {
      if (level_ > 0) {
        return this;
      }
      level_ = speedChain.size();
      return root_.get();
    }

   private:
    std::unique_ptr<ModelRoot>& root_;
    std::size_t level_ = speedChain.size();
  };

  EvtSrv::EventPortManager manager{EvtSrv::ConBehave_Default, true};
  std::unique_ptr<ModelRoot> root = std::make_unique<ModelRoot>(&manager);
  Speed one{root};
  Speed other{root};
};

TEST_F(ClientUpdatesTest, MayDestroyTheRootThatToldThem) {
  MeddledClient client(name_);
  client.one.meddle = [&] { client.root.reset(); };
  ASSERT_EQ(server_.speed.setValue(1), ModelRes_Success);
  EXPECT_EQ(client.manager.receiveEvent(-1), EvtSrv::EvtRes_Success);
  EXPECT_EQ(client.one.told, 1);
  EXPECT_EQ(client.other.told, 0);
  EXPECT_EQ(client.manager.receiveEvent(0), EvtSrv::EvtRes_Timeout);
}

TEST_F(ClientUpdatesTest, MayStopTheRootThatToldThem) {
  MeddledClient client(name_);
  client.one.meddle = [&] { client.root->stop(true); };
  ASSERT_EQ(server_.speed.setValue(1), ModelRes_Success);
  EXPECT_EQ(client.manager.receiveEvent(-1), EvtSrv::EvtRes_Success);
  EXPECT_EQ(client.other.told, 0);
}

TEST_F(ClientUpdatesTest, MayConnectTheRootThatToldThemAnew) {
  MeddledClient client(name_);
  client.one.meddle = [&] {
    EXPECT_EQ(
        client.root->startAsClient(name_, ModelRoot::CachePeriod_Stop, EvtSrv::ConBehave_Void),
        ModelRes_Success);
    EXPECT_EQ(client.other.subscribeToServer(client.root.get(), 0, nullptr, all), ModelRes_Success);
  };
  ASSERT_EQ(server_.speed.setValue(1), ModelRes_Success);
  EXPECT_EQ(client.manager.receiveEvent(-1), EvtSrv::EvtRes_Success);
  EXPECT_EQ(client.other.told, 0) << "it subscribed after the change";
  EXPECT_EQ(client.manager.receiveEvent(-1), EvtSrv::EvtRes_Success) << "the started event";
  ASSERT_EQ(server_.speed.setValue(2), ModelRes_Success);
  EXPECT_EQ(client.manager.receiveEvent(-1), EvtSrv::EvtRes_Success);
  EXPECT_EQ(client.one.told, 1);
  EXPECT_EQ(client.other.told, 1);
}

}  // namespace
