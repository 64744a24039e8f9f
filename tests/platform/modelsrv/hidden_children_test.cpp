#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "modelsrv/source/tree_session.h"
#include "tests/platform/modelsrv/fake_connection.h"
#include "tests/platform/modelsrv/hiding_node.h"
#include "tests/platform/modelsrv/served_tree.h"

// Nodes that hide their children from clients, always or sometimes.

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;

/// Returns a node from `asNode` that is not in the tree.
class Alias final : public ModelPart {
 public:
  explicit Alias(ModelPartId id) : ModelPart(id, "alias") {
    EXPECT_EQ(inner_.add(&child_), ModelRes_Success);
  }
  ~Alias() override { detach(); }

 protected:
  [[nodiscard]] bool isCacheable() const override { return true; }
  [[nodiscard]] ModelNode* asNode() override { return &inner_; }

 private:
  ModelNode inner_{1, "inner"};
  ValuePart<std::int32_t> child_{1, "child", 7};
};

TEST(HiddenChildren, AreNeverStaleInANodeThatWasAddedWhileHidingThem) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  HidingNode hiding(30, "hiding", server.manager);
  ModelNode group(1, "group");
  ValuePart<std::int32_t> early(1, "early", 1);
  ValuePart<std::int32_t> late(2, "late", 2);
  ASSERT_EQ(group.add(&early), ModelRes_Success);
  ASSERT_EQ(hiding.add(&group), ModelRes_Success);
  hiding.hide(true);
  ASSERT_EQ(server.drive.add(&hiding), ModelRes_Success);
  hiding.hide(false);
  Client client;
  ASSERT_EQ(client.connect(name), ModelRes_Success);
  std::vector<unsigned short> ids;
  const auto groupChildren = [&] {
    EXPECT_EQ(client.childIds({1, 30, 1}, ids), ModelRes_Success);
    return ids;
  };
  EXPECT_EQ(groupChildren(), (std::vector<unsigned short>{1}));
  ASSERT_EQ(group.add(&late), ModelRes_Success);
  EXPECT_EQ(groupChildren(), (std::vector<unsigned short>{1, 2}));
  EXPECT_EQ(client.text({1, 30, 1, 1}), "1");
  ASSERT_EQ(group.remove(&early), ModelRes_Success);
  EXPECT_EQ(client.text({1, 30, 1, 1}), "?");
}

TEST(HiddenChildren, LoseTheirSubscriptionsWhenTheirNodeLeavesTheTree) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  HidingNode hiding(9, "hiding", server.manager);
  ModelNode group(1, "group");
  ValuePart<std::int32_t> inner(1, "inner", 1);
  ASSERT_EQ(group.add(&inner), ModelRes_Success);
  ASSERT_EQ(hiding.add(&group), ModelRes_Success);
  ASSERT_EQ(server.root.add(&hiding), ModelRes_Success);
  Client client;
  ASSERT_EQ(client.connect(name), ModelRes_Success);
  ASSERT_EQ(client.subscribe({9, 1, 1}), ModelRes_Success);
  ASSERT_EQ(client.subscribe(speedChain), ModelRes_Success);
  hiding.hide(true);
  ASSERT_EQ(server.root.remove(&hiding), ModelRes_Success);
  client.pumpAll();
  client.root.updates.clear();
  // The part has no root now. Its id chain from the topmost node could be taken for another part.
  ASSERT_EQ(inner.setValue(5), ModelRes_Success);
  ASSERT_EQ(client.text(speedChain), "42");
  client.pumpAll();
  EXPECT_TRUE(client.root.updates.empty());
}

TEST(HiddenChildren, OutliveTheirNodeAndItsManager) {
  auto inner = std::make_unique<ValuePart<std::int32_t>>(1, "inner", 1);
  {
    Server server(test_support::uniquePortName());
    HidingNode hiding(30, "hiding", server.manager);
    ASSERT_EQ(hiding.add(inner.get()), ModelRes_Success);
    ASSERT_EQ(server.drive.add(&hiding), ModelRes_Success);
    hiding.hide(true);
  }
  EXPECT_EQ(inner->setValue(2), ModelRes_Success);
  EXPECT_EQ(inner->value(), 2);
}

TEST(HiddenChildren, AreNotThoseOfANodeOutsideTheTree) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  Alias alias(30);
  ASSERT_EQ(server.drive.add(&alias), ModelRes_Success);
  Client client;
  ASSERT_EQ(client.connect(name), ModelRes_Success);
  std::vector<unsigned short> ids{1};
  EXPECT_EQ(client.childIds({1, 30}, ids), ModelRes_Success);
  EXPECT_TRUE(ids.empty());
  EXPECT_EQ(client.text({1, 30, 1}), "?");
  EXPECT_EQ(client.text(speedChain), "42");
}

TEST(HiddenChildren, CanBeUnsubscribed) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  HidingNode hiding(30, "hiding", server.manager);
  ValuePart<std::int32_t> child(1, "child", 1);
  ASSERT_EQ(hiding.add(&child), ModelRes_Success);
  ASSERT_EQ(server.root.add(&hiding), ModelRes_Success);
  Client client;
  ASSERT_EQ(client.connect(name), ModelRes_Success);
  ASSERT_EQ(client.subscribe({30, 1}), ModelRes_Success);
  ASSERT_EQ(client.subscribe(speedChain), ModelRes_Success);
  hiding.hide(true);
  EXPECT_EQ(client.unsubscribe({30, 1}), ModelRes_Success);
  hiding.hide(false);
  // The client ignores updates of what it has not subscribed to; a second subscription shows
  // whether the server had one left.
  ASSERT_EQ(client.subscribe({30, 1}, 0), ModelRes_NoSuchIndex);
  ASSERT_EQ(child.setValue(2), ModelRes_Success);
  ASSERT_EQ(client.subscribe({30, 1}), ModelRes_Success);
  ASSERT_EQ(server.speed.setValue(1), ModelRes_Success);
  ASSERT_TRUE(client.pumpUntil([&] { return !client.root.updates.empty(); }));
  EXPECT_EQ(client.root.updates.front().first, speedChain);
}

TEST(HiddenChildren, AreFoundByARenewal) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  HidingNode hiding(30, "hiding", server.manager);
  ValuePart<std::int32_t> child(1, "child", 1);
  ASSERT_EQ(hiding.add(&child), ModelRes_Success);
  ASSERT_EQ(server.root.add(&hiding), ModelRes_Success);
  hiding.hide(true);
  const std::lock_guard lock(server.manager.clientMutex);
  FakeConnection connection;
  internal::TreeSession session(std::make_shared<internal::SessionShare>(server.root), connection);
  for (const auto& [operation, result] :
       {std::pair{internal::Operation::subscribe, ModelRes_NoSuchPart},
        std::pair{internal::Operation::renew, ModelRes_Success},
        std::pair{internal::Operation::save, ModelRes_NoSuchPart}}) {
    const std::vector<std::uint8_t> payload = payloadOf({operation, {30, 1}, all});
    EvtSrv::internal::PayloadReader reader(payload, EvtSrv::internal::nativeOrder);
    std::vector<std::uint8_t> reply;
    EXPECT_EQ(session.handle(static_cast<std::uint16_t>(operation), reader, reply), result);
  }
  EXPECT_TRUE(child.isWatched());
}

}  // namespace
