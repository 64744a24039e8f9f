#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tests/platform/modelsrv/served_tree.h"

// Nodes that do not always answer for the children that they have.

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;

class FoldingNode final : public ModelNode {
 public:
  FoldingNode(ModelPartId id, EvtSrv::EventPortManager& manager)
      : ModelNode(id, "folding"), mutex_(manager.clientMutex) {}
  ~FoldingNode() override { detach(); }

  void fold(bool folded) {
    const std::lock_guard lock(mutex_);
    invalidate();
    isFolded_ = folded;
  }

 protected:
  [[nodiscard]] bool isCacheable() const override { return true; }
  [[nodiscard]] ModelNode* asNode() override { return isFolded_ ? nullptr : this; }

 private:
  KSTD::KThreadMutex& mutex_;
  bool isFolded_ = false;
};

/// Answers with a node that it keeps within.
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

TEST(HiddenChildren, AreNeverStaleBelowANodeThatWasAddedFolded) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  FoldingNode folding(30, server.manager);
  ModelNode group(1, "group");
  ValuePart<std::int32_t> early(1, "early", 1);
  ValuePart<std::int32_t> late(2, "late", 2);
  ASSERT_EQ(group.add(&early), ModelRes_Success);
  ASSERT_EQ(folding.add(&group), ModelRes_Success);
  folding.fold(true);
  ASSERT_EQ(server.drive.add(&folding), ModelRes_Success);
  folding.fold(false);
  Client client;
  ASSERT_EQ(client.connect(name), ModelRes_Success);
  std::vector<unsigned short> ids;
  const auto childrenOfTheGroup = [&] {
    EXPECT_EQ(client.root.getChildIdsFromServer(&client.part.at({1, 30, 1}), ids),
              ModelRes_Success);
    return ids;
  };
  EXPECT_EQ(childrenOfTheGroup(), (std::vector<unsigned short>{1}));
  ASSERT_EQ(group.add(&late), ModelRes_Success);
  EXPECT_EQ(childrenOfTheGroup(), (std::vector<unsigned short>{1, 2}));
  EXPECT_EQ(client.text({1, 30, 1, 1}), "1");
  ASSERT_EQ(group.remove(&early), ModelRes_Success);
  EXPECT_EQ(client.text({1, 30, 1, 1}), "?");
}

TEST(HiddenChildren, AreSubscribedNoLongerThanTheirNodeIsInTheTree) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  FoldingNode folding(9, server.manager);
  ModelNode group(1, "group");
  ValuePart<std::int32_t> inner(1, "inner", 1);
  ASSERT_EQ(group.add(&inner), ModelRes_Success);
  ASSERT_EQ(folding.add(&group), ModelRes_Success);
  ASSERT_EQ(server.root.add(&folding), ModelRes_Success);
  Client client;
  ASSERT_EQ(client.connect(name), ModelRes_Success);
  ASSERT_EQ(client.subscribe({9, 1, 1}), ModelRes_Success);
  ASSERT_EQ(client.subscribe(speedChain), ModelRes_Success);
  folding.fold(true);
  ASSERT_EQ(server.root.remove(&folding), ModelRes_Success);
  client.pumpAll();
  client.root.updates.clear();
  // What hangs below no root is nobody's business; its ids are now a shorter chain's.
  ASSERT_EQ(inner.setValue(5), ModelRes_Success);
  ASSERT_EQ(client.text(speedChain), "42");
  client.pumpAll();
  EXPECT_TRUE(client.root.updates.empty());
}

TEST(HiddenChildren, OutliveTheirNodeAndItsManager) {
  auto inner = std::make_unique<ValuePart<std::int32_t>>(1, "inner", 1);
  {
    Server server(test_support::uniquePortName());
    FoldingNode folding(30, server.manager);
    ASSERT_EQ(folding.add(inner.get()), ModelRes_Success);
    ASSERT_EQ(server.drive.add(&folding), ModelRes_Success);
    folding.fold(true);
  }
  EXPECT_EQ(inner->setValue(2), ModelRes_Success);
  EXPECT_EQ(inner->value(), 2);
}

TEST(HiddenChildren, AreThoseOfANodeThatIsNotInTheTree) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  Alias alias(30);
  ASSERT_EQ(server.drive.add(&alias), ModelRes_Success);
  Client client;
  ASSERT_EQ(client.connect(name), ModelRes_Success);
  std::vector<unsigned short> ids{1};
  EXPECT_EQ(client.root.getChildIdsFromServer(&client.part.at({1, 30}), ids), ModelRes_Success);
  EXPECT_TRUE(ids.empty());
  EXPECT_EQ(client.text({1, 30, 1}), "?");
  EXPECT_EQ(client.text(speedChain), "42");
}

}  // namespace
