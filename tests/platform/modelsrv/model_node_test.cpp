#include "modelsrv/model_node.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/id_chain.h"
#include "modelsrv/value_parts.h"
#include "tests/support/proxy_part.h"

namespace {

using namespace ModelSrv;
using test_support::ProxyPart;

class ModelNodes : public testing::Test {
 protected:
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, true};
  ModelRoot root_{&manager_};
};

TEST_F(ModelNodes, KeepsChildrenInTheOrderOfAdding) {
  ModelNode node(1);
  ModelPart five(5);
  ModelPart three(3);
  ModelPart nine(9);
  EXPECT_EQ(node.add(&five), ModelRes_Success);
  EXPECT_EQ(node.add(&three), ModelRes_Success);
  EXPECT_EQ(node.add(&nine), ModelRes_Success);
  EXPECT_EQ(node.children(), (std::vector<ModelPart*>{&five, &three, &nine}));
  EXPECT_EQ(node.findChild(3), &three);
  EXPECT_EQ(node.findChild(5), &five);
  EXPECT_EQ(node.findChild(9), &nine);
  EXPECT_EQ(node.findChild(4), nullptr);
  EXPECT_EQ(three.parent(), &node);
}

TEST_F(ModelNodes, RejectsWhatCannotBeAChild) {
  ModelNode node(1);
  ModelPart child(1);
  ModelPart twin(1);
  ModelPart tooLarge(ModelPartId_Max + 1);
  ModelRoot other(&manager_);
  EXPECT_EQ(node.add(nullptr), ModelRes_BadArgument);
  EXPECT_EQ(node.add(&child), ModelRes_Success);
  EXPECT_EQ(node.add(&child), ModelRes_BadArgument);
  EXPECT_EQ(root_.add(&child), ModelRes_BadArgument);
  EXPECT_EQ(node.add(&twin), ModelRes_DuplicateId);
  EXPECT_EQ(node.add(&tooLarge), ModelRes_BadArgument);
  EXPECT_EQ(node.add(&other), ModelRes_BadArgument);
  EXPECT_EQ(node.children(), std::vector<ModelPart*>{&child});
  EXPECT_EQ(twin.parent(), nullptr);
}

TEST_F(ModelNodes, RejectsANodeAsItsOwnDescendant) {
  ModelNode top(1);
  ModelNode middle(1);
  ModelNode bottom(1);
  EXPECT_EQ(top.add(&top), ModelRes_BadArgument);
  ASSERT_EQ(top.add(&middle), ModelRes_Success);
  ASSERT_EQ(middle.add(&bottom), ModelRes_Success);
  EXPECT_EQ(bottom.add(&top), ModelRes_BadArgument);
  EXPECT_EQ(bottom.add(&bottom), ModelRes_BadArgument);
}

TEST_F(ModelNodes, AcceptsSeveralProxiesAndFindsNone) {
  ModelPart first;
  ModelPart second;
  ModelPart named(4);
  EXPECT_EQ(root_.add(&first), ModelRes_Success);
  EXPECT_EQ(root_.add(&named), ModelRes_Success);
  EXPECT_EQ(root_.add(&second), ModelRes_Success);
  EXPECT_EQ(root_.findChild(ModelPartId_Void), nullptr);
  EXPECT_EQ(root_.findChild(4), &named);
  EXPECT_EQ(root_.remove(&first), ModelRes_Success);
  EXPECT_EQ(root_.findChild(4), &named);
  EXPECT_EQ(root_.children(), (std::vector<ModelPart*>{&named, &second}));
}

TEST_F(ModelNodes, RemovesChildrenOnly) {
  ModelNode node(1);
  ModelPart child(1);
  ModelPart other(1);
  ASSERT_EQ(node.add(&child), ModelRes_Success);
  EXPECT_EQ(node.remove(&other), ModelRes_NoSuchPart);
  EXPECT_EQ(node.remove(nullptr), ModelRes_NoSuchPart);
  EXPECT_EQ(node.remove(&child), ModelRes_Success);
  EXPECT_EQ(node.remove(&child), ModelRes_NoSuchPart);
  EXPECT_EQ(child.parent(), nullptr);
  EXPECT_EQ(node.add(&other), ModelRes_Success);
  EXPECT_EQ(other.parent(), &node);
}

TEST_F(ModelNodes, FindsEveryChildAfterAnyOrderOfAddingAndRemoving) {
  std::mt19937 random(3);
  std::vector<std::unique_ptr<ModelPart>> parts;
  for (ModelPartId id = 0; id < 300; ++id) {
    parts.push_back(std::make_unique<ModelPart>(id));
  }
  std::vector<std::size_t> order(parts.size());
  std::iota(order.begin(), order.end(), 0);
  for (int round = 0; round < 20; ++round) {
    if (round != 0) {
      std::shuffle(order.begin(), order.end(), random);
    }
    ModelNode node(1);
    for (const std::size_t at : order) {
      ASSERT_EQ(node.add(parts[at].get()), ModelRes_Success);
    }
    std::shuffle(order.begin(), order.end(), random);
    for (std::size_t i = 0; i < order.size() / 2; ++i) {
      ASSERT_EQ(node.remove(parts[order[i]].get()), ModelRes_Success);
    }
    for (std::size_t i = 0; i < order.size(); ++i) {
      EXPECT_EQ(node.findChild(static_cast<ModelPartId>(order[i])),
                i < order.size() / 2 ? nullptr : parts[order[i]].get());
    }
  }
}

TEST_F(ModelNodes, SetsAllChildrenInOneStep) {
  ModelNode node(1);
  ModelPart one(1);
  ModelPart two(2);
  ModelPart three(3);
  ModelPart otherTwo(2);
  ModelPart proxy;
  ASSERT_EQ(root_.add(&node), ModelRes_Success);
  using Parts = std::vector<ModelPart*>;
  for (const Parts& parts :
       {Parts{&one, &two, &three}, Parts{&three, &one}, Parts{&three, &otherTwo, &proxy, &one},
        Parts{&one, &two, &three}, Parts{}, Parts{&two}}) {
    ASSERT_EQ(node.setChildren(parts), ModelRes_Success);
    EXPECT_EQ(node.children(), parts);
    for (ModelPart* part : Parts{&one, &two, &three, &otherTwo, &proxy}) {
      const bool isChild = std::find(parts.begin(), parts.end(), part) != parts.end();
      EXPECT_EQ(part->parent(), isChild ? &node : nullptr);
      EXPECT_EQ(part->findRoot(), isChild ? &root_ : nullptr);
      if (part != &proxy) {
        EXPECT_EQ(node.findChild(part->id()) == part, isChild);
      }
    }
  }
}

TEST_F(ModelNodes, KeepsItsChildrenIfItCannotHaveTheNewOnes) {
  ModelNode top(1);
  ModelNode node(2);
  ModelPart child(1);
  ModelPart twin(1);
  ModelPart other(3);
  ModelPart tooLarge(ModelPartId_Max + 1);
  ModelPart elsewhere(5);
  ASSERT_EQ(top.setChildren({&elsewhere, &node}), ModelRes_Success);
  ASSERT_EQ(node.setChildren({&child}), ModelRes_Success);
  const std::vector<ModelPart*> before{&child};
  EXPECT_EQ(node.setChildren({&other, nullptr}), ModelRes_BadArgument);
  EXPECT_EQ(node.setChildren({&other, &child, &other}), ModelRes_BadArgument);
  EXPECT_EQ(node.setChildren({&other, &tooLarge}), ModelRes_BadArgument);
  EXPECT_EQ(node.setChildren({&other, &elsewhere}), ModelRes_BadArgument);
  EXPECT_EQ(node.setChildren({&other, &node}), ModelRes_BadArgument);
  EXPECT_EQ(node.setChildren({&other, &top}), ModelRes_BadArgument);
  EXPECT_EQ(top.setChildren({&top}), ModelRes_BadArgument);
  EXPECT_EQ(node.setChildren({&other, &root_}), ModelRes_BadArgument);
  EXPECT_EQ(node.setChildren({&child, &other, &twin}), ModelRes_DuplicateId);
  EXPECT_EQ(node.children(), before);
  EXPECT_EQ(child.parent(), &node);
  EXPECT_EQ(other.parent(), nullptr);
}

TEST_F(ModelNodes, HasARootOnlyWhileInItsTree) {
  ModelNode node(1);
  ValuePart<int> part(1, "");
  ASSERT_EQ(node.add(&part), ModelRes_Success);
  EXPECT_EQ(part.findRoot(), nullptr);
  ASSERT_EQ(root_.add(&node), ModelRes_Success);
  EXPECT_EQ(part.findRoot(), &root_);
  ASSERT_EQ(root_.remove(&node), ModelRes_Success);
  EXPECT_EQ(part.findRoot(), nullptr);
  EXPECT_EQ(root_.findRoot(), &root_);
}

TEST_F(ModelNodes, MayBeDestroyedBeforeOrAfterItsChildren) {
  auto node = std::make_unique<ModelNode>(1);
  auto child = std::make_unique<ModelNode>(2);
  auto part = std::make_unique<ValuePart<int>>(3, "");
  ASSERT_EQ(root_.add(node.get()), ModelRes_Success);
  ASSERT_EQ(node->add(child.get()), ModelRes_Success);
  ASSERT_EQ(child->add(part.get()), ModelRes_Success);
  node.reset();
  EXPECT_TRUE(root_.children().empty());
  EXPECT_EQ(child->parent(), nullptr);
  EXPECT_EQ(part->findRoot(), nullptr);
  EXPECT_EQ(part->setValue(1), ModelRes_Success);
  part.reset();
  EXPECT_TRUE(child->children().empty());
}

TEST_F(ModelNodes, OutlivesItsRoot) {
  auto root = std::make_unique<ModelRoot>(&manager_);
  ModelNode node(1);
  ValuePart<int> part(1, "");
  ASSERT_EQ(root->add(&node), ModelRes_Success);
  ASSERT_EQ(node.add(&part), ModelRes_Success);
  root.reset();
  EXPECT_EQ(node.parent(), nullptr);
  EXPECT_EQ(part.setValue(3), ModelRes_Success);
  EXPECT_EQ(root_.add(&node), ModelRes_Success);
  EXPECT_EQ(part.findRoot(), &root_);
}

TEST_F(ModelNodes, MayBeTenThousandLevelsDeep) {
  constexpr std::size_t depth = 10000;
  std::vector<std::unique_ptr<ModelNode>> nodes;
  for (std::size_t level = 0; level < depth; ++level) {
    nodes.push_back(std::make_unique<ModelNode>(1));
    if (level != 0) {
      ASSERT_EQ(nodes[level]->add(nodes[level - 1].get()), ModelRes_Success);
    }
  }
  ASSERT_EQ(root_.add(nodes.back().get()), ModelRes_Success);
  EXPECT_EQ(nodes.front()->findRoot(), &root_);
  nodes.pop_back();
  EXPECT_EQ(nodes.front()->findRoot(), nullptr);
}

std::vector<ModelPartId> idsOf(const internal::ResolvedChain& resolved) {
  return {resolved.chain().begin(), resolved.chain().end()};
}

TEST_F(ModelNodes, ChainCallsEachLevelOnce) {
  ProxyPart part(root_);
  ASSERT_EQ(root_.add(&part), ModelRes_Success);
  part.at({4, 0, 65533});
  const internal::ResolvedChain resolved(part);
  EXPECT_EQ(resolved.result(), ModelRes_Success);
  EXPECT_EQ(idsOf(resolved), (std::vector<ModelPartId>{4, 0, 65533}));
  EXPECT_EQ(resolved.root(), &root_);
  EXPECT_EQ(part.idCalls, 3);
  EXPECT_EQ(part.parentCalls, 3);
}

TEST_F(ModelNodes, ChainHasTheIdsInOrderAtAnyDepth) {
  ProxyPart part(root_);
  for (const std::size_t depth : {1U, 15U, 16U, 17U, 40U}) {
    std::vector<ModelPartId> chain(depth);
    std::iota(chain.begin(), chain.end(), ModelPartId{7});
    part.at(chain);
    EXPECT_EQ(idsOf(internal::ResolvedChain(part)), chain) << depth;
  }
}

TEST_F(ModelNodes, ChainOfTheRootIsEmpty) {
  const internal::ResolvedChain resolved(root_);
  EXPECT_EQ(resolved.result(), ModelRes_Success);
  EXPECT_EQ(resolved.root(), &root_);
  EXPECT_TRUE(resolved.chain().empty());
}

TEST(IdChains, AreOrderedByTheirFirstDifferentId) {
  const std::vector<std::vector<ModelPartId>> ordered{
      {}, {0}, {0, 1}, {0, 0x100}, {1}, {1, 1}, {1, 1, 3}, {1, 2, 1}, {1, 0x100, 0}, {0x100}};
  const internal::ChainLess less;
  for (std::size_t left = 0; left < ordered.size(); ++left) {
    for (std::size_t right = 0; right < ordered.size(); ++right) {
      EXPECT_EQ(less(ordered[left], ordered[right]), left < right) << left << ", " << right;
    }
  }
}

TEST_F(ModelNodes, ChainHasADepthLimit) {
  ProxyPart part(root_);
  part.at(std::vector<ModelPartId>(ModelDepth_Max, 1));
  const internal::ResolvedChain deepest(part);
  EXPECT_EQ(deepest.result(), ModelRes_Success);
  EXPECT_EQ(deepest.chain().size(), ModelDepth_Max);
  part.at(std::vector<ModelPartId>(ModelDepth_Max + 1, 1));
  const internal::ResolvedChain deeper(part);
  EXPECT_EQ(deeper.result(), ModelRes_BadArgument);
  EXPECT_EQ(deeper.root(), nullptr);
  ModelNode unattached(1);
  const internal::ResolvedChain rootless(unattached);
  EXPECT_EQ(rootless.result(), ModelRes_NoSuchPart);
  EXPECT_EQ(rootless.root(), nullptr);
}

}  // namespace
