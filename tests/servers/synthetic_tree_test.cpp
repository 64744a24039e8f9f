#include "servers/synthetic_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>

namespace modelsrvd {
namespace {

TEST(SyntheticTree, NamesAndNumbersItsPartsByPosition) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  ModelSrv::ModelRoot root(&manager);
  SyntheticTree tree({1001, 2});
  ASSERT_FALSE(tree.publish(root));
  ASSERT_EQ(root.children().size(), 1001U);
  EXPECT_EQ(root.children()[0]->name(), "group_000");
  EXPECT_EQ(root.children()[1000]->name(), "group_1000");
  EXPECT_EQ(root.children()[1000]->id(), 1000U);
  EXPECT_EQ(tree.part(1).name(), "item_0001");
  EXPECT_EQ(tree.part(1).id(), 1U);
}

TEST(SyntheticTree, ChangesEveryPartOncePerRound) {
  for (const SyntheticShape shape : {SyntheticShape{1, 1}, SyntheticShape{1, 2},
                                     SyntheticShape{7, 13}, SyntheticShape{10, 100}}) {
    SyntheticTree tree(shape);
    const auto size = static_cast<std::uint32_t>(tree.size());
    tree.change(size / 2);
    tree.change(2 * size - size / 2);
    for (std::size_t index = 0; index < tree.size(); ++index) {
      EXPECT_EQ(tree.part(index).value(), 2) << index;
    }
  }
}

TEST(SyntheticTree, SpreadsAFewChangesOverTheGroups) {
  SyntheticTree tree({10, 100});
  tree.change(10);
  std::size_t groups = 0;
  for (std::size_t group = 0; group < 10; ++group) {
    std::size_t changed = 0;
    for (std::size_t item = 0; item < 100; ++item) {
      changed += tree.part(group * 100 + item).value() != 0 ? 1U : 0U;
    }
    groups += changed != 0 ? 1U : 0U;
  }
  EXPECT_GE(groups, 8U);
}

}  // namespace
}  // namespace modelsrvd
