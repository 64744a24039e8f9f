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

class ClientUpdates : public ConnectedClient {
 protected:
  /// The updates that the server has written so far. They end with one of the marker part,
  /// which this function changes: updates are written before the next reply, or right after it if
  /// its own request made the change.
  Updates takeUpdates() {
    EXPECT_EQ(client_.load(markerChain_, std::to_string(++markerValue_)), ModelRes_Success);
    const auto isComplete = [this] {
      return !client_.root.updates.empty() && client_.root.updates.back().first == markerChain_;
    };
    EXPECT_TRUE(client_.pumpUntil(isComplete));
    Updates updates = std::exchange(client_.root.updates, {});
    if (!updates.empty()) {
      updates.pop_back();
    }
    return updates;
  }

  /// Must be called before `takeUpdates`.
  void subscribeMarker() { ASSERT_EQ(client_.subscribe(markerChain_), ModelRes_Success); }

  const Chain markerChain_{1, 12};
  int markerValue_ = 1000;
};

TEST_F(ClientUpdates, ReachTheSubscribingPartWithItsContext) {
  int context = 0;
  ASSERT_EQ(client_.subscribe(gainsChain, 1, &context), ModelRes_Success);
  ASSERT_EQ(server_.gains.setValue(1, 5), ModelRes_Success);
  ASSERT_TRUE(client_.pumpUntil([&] { return !client_.part.updates.empty(); }));
  EXPECT_EQ(client_.part.updates, (std::vector<ProxyPart::Update>{{&context, 1}}));
  EXPECT_EQ(client_.root.updates, (Updates{{gainsChain, 1}}));
  EXPECT_EQ(client_.root.senders.back(), name_);
}

TEST_F(ClientUpdates, ReachTheStoringClientToo) {
  ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  ASSERT_EQ(client_.load(speedChain, "7"), ModelRes_Success);
  ASSERT_TRUE(client_.pumpUntil([&] { return !client_.root.updates.empty(); }));
  EXPECT_EQ(client_.root.updates, (Updates{{speedChain, all}}));
}

TEST_F(ClientUpdates, AreSentForChangesOfSubscribedPartsOnly) {
  subscribeMarker();
  ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  ASSERT_EQ(client_.load(speedChain, "42"), ModelRes_Success);
  ASSERT_EQ(server_.speed.setValue(42), ModelRes_Success);
  ASSERT_EQ(server_.label.setValue("changed"), ModelRes_Success);
  ASSERT_EQ(client_.load(speedChain, "x"), ModelRes_BadText);
  EXPECT_EQ(takeUpdates(), Updates{});
}

TEST_F(ClientUpdates, OfADoubleSubscriptionAreSentOnceAndEndWithTheSecondCancellation) {
  subscribeMarker();
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

TEST_F(ClientUpdates, ThatArriveAfterACancellationAreDropped) {
  subscribeMarker();
  ASSERT_EQ(client_.subscribe(speedChain), ModelRes_Success);
  ASSERT_EQ(server_.speed.setValue(1), ModelRes_Success);
  ASSERT_EQ(client_.unsubscribe(speedChain), ModelRes_Success);
  EXPECT_EQ(takeUpdates(), Updates{});
}

TEST_F(ClientUpdates, EndWhenTheSubscribingPartIsRemovedOrDestroyed) {
  subscribeMarker();
  auto other = std::make_unique<ProxyPart>(client_.root);
  ASSERT_EQ(client_.root.add(other.get()), ModelRes_Success);
  for (const bool destroy : {false, true}) {
    ASSERT_EQ(other->at(speedChain).subscribeToServer(&client_.root, 0, nullptr, all),
              ModelRes_Success);
    ASSERT_EQ(other->at(gainsChain).subscribeToServer(&client_.root, 0, nullptr, 0),
              ModelRes_Success);
    ASSERT_EQ(server_.speed.setValue(destroy ? 1 : 2), ModelRes_Success);
    ASSERT_TRUE(client_.pumpUntil([&] { return !other->updates.empty(); }));
    client_.root.updates.clear();
    other->updates.clear();
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

TEST_F(ClientUpdates, EndWhenTheServersPartIsRemoved) {
  subscribeMarker();
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

TEST_F(ClientUpdates, AllowRequestsInTheirHandler) {
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

TEST_F(ClientUpdates, AllowTheirHandlerToStopAndConnectAgain) {
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
  EXPECT_TRUE(client_.part.updates.empty()) << "the stop ended the subscription";
}

TEST_F(ClientUpdates, ForAClientThatReceivesNothingAreBoundedAndCoverEveryPart) {
  ModelNode many(20, "many");
  std::vector<std::unique_ptr<ValuePart<std::int32_t>>> parts;
  constexpr ModelPartId partCount = 2000;
  ASSERT_EQ(server_.root.add(&many), ModelRes_Success);
  for (ModelPartId id = 0; id < partCount; ++id) {
    parts.push_back(std::make_unique<ValuePart<std::int32_t>>(id, "", -1));
    ASSERT_EQ(many.add(parts.back().get()), ModelRes_Success);
    ASSERT_EQ(client_.subscribe({20, id}), ModelRes_Success);
  }
  subscribeMarker();
  for (std::int32_t i = 0; i < 100000; ++i) {
    ASSERT_EQ(parts[static_cast<std::size_t>(i) % partCount]->setValue(i), ModelRes_Success);
  }
  const Updates updates = takeUpdates();
  EXPECT_LT(updates.size(), 20000U) << "those in the pipe, and one for each part";
  std::vector<bool> updated(partCount);
  for (const auto& [chain, index] : updates) {
    updated[chain[1]] = true;
  }
  EXPECT_EQ(std::count(updated.begin(), updated.end(), true), partCount);
  for (const ModelPartId id : {ModelPartId{0}, ModelPartId{partCount - 1}}) {
    EXPECT_EQ(client_.text({20, id}), std::to_string(100000 - partCount + id));
  }
}

TEST_F(ClientUpdates, OfOneClientAreNotSentToAnother) {
  Client other;
  ASSERT_EQ(other.connect(name_), ModelRes_Success);
  ASSERT_EQ(other.subscribe(speedChain), ModelRes_Success);
  subscribeMarker();
  ASSERT_EQ(client_.load(speedChain, "3"), ModelRes_Success);
  ASSERT_TRUE(other.pumpUntil([&] { return !other.root.updates.empty(); }));
  EXPECT_EQ(other.root.updates, (Updates{{speedChain, all}}));
  EXPECT_EQ(takeUpdates(), Updates{});
}

/// Runs a function of the test in the middle of an update.
class CallbackPart : public ModelPart {
 public:
  explicit CallbackPart(ModelPartId id) : ModelPart(id) {}
  ModelRes update(void* /*context*/, unsigned short /*index*/) override {
    ++updates;
    if (onUpdate) {
      onUpdate();
    }
    return ModelRes_Success;
  }
  int updates = 0;
  std::function<void()> onUpdate;
};

/// A client with two parts that represent /drive/speed.
struct TwoPartClient {
  explicit TwoPartClient(const std::string& name) {
    EXPECT_EQ(root->startAsClient(name, ModelRoot::CachePeriod_Stop, EvtSrv::ConBehave_Void),
              ModelRes_Success);
    for (ModelPart* part : {static_cast<ModelPart*>(&one), static_cast<ModelPart*>(&other)}) {
      EXPECT_EQ(root->add(part), ModelRes_Success);
      EXPECT_EQ(part->subscribeToServer(root.get(), 0, nullptr, all), ModelRes_Success);
    }
    EXPECT_EQ(manager.receiveEvent(-1), EvtSrv::EvtRes_Success);
  }

  class Speed : public CallbackPart {
   public:
    explicit Speed(std::unique_ptr<ModelRoot>& root)
        : CallbackPart(ModelPartId_Void), root_(root) {}
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

TEST_F(ClientUpdates, MayDestroyTheirRoot) {
  TwoPartClient client(name_);
  client.one.onUpdate = [&] { client.root.reset(); };
  ASSERT_EQ(server_.speed.setValue(1), ModelRes_Success);
  EXPECT_EQ(client.manager.receiveEvent(-1), EvtSrv::EvtRes_Success);
  EXPECT_EQ(client.one.updates, 1);
  EXPECT_EQ(client.other.updates, 0);
  EXPECT_EQ(client.manager.receiveEvent(0), EvtSrv::EvtRes_Timeout);
}

TEST_F(ClientUpdates, MayStopTheirRoot) {
  TwoPartClient client(name_);
  client.one.onUpdate = [&] { client.root->stop(true); };
  ASSERT_EQ(server_.speed.setValue(1), ModelRes_Success);
  EXPECT_EQ(client.manager.receiveEvent(-1), EvtSrv::EvtRes_Success);
  EXPECT_EQ(client.other.updates, 0);
}

TEST_F(ClientUpdates, MayConnectTheirRootAgain) {
  TwoPartClient client(name_);
  client.one.onUpdate = [&] {
    EXPECT_EQ(
        client.root->startAsClient(name_, ModelRoot::CachePeriod_Stop, EvtSrv::ConBehave_Void),
        ModelRes_Success);
    EXPECT_EQ(client.other.subscribeToServer(client.root.get(), 0, nullptr, all), ModelRes_Success);
  };
  ASSERT_EQ(server_.speed.setValue(1), ModelRes_Success);
  EXPECT_EQ(client.manager.receiveEvent(-1), EvtSrv::EvtRes_Success);
  EXPECT_EQ(client.other.updates, 0) << "it subscribed after the change";
  EXPECT_EQ(client.manager.receiveEvent(-1), EvtSrv::EvtRes_Success) << "the started event";
  ASSERT_EQ(server_.speed.setValue(2), ModelRes_Success);
  EXPECT_EQ(client.manager.receiveEvent(-1), EvtSrv::EvtRes_Success);
  EXPECT_EQ(client.one.updates, 1);
  EXPECT_EQ(client.other.updates, 1);
}

}  // namespace
