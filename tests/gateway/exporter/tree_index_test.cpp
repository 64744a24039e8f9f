#include "gateway/exporter/tree_index.h"

#include <gtest/gtest.h>

#include <optional>

#include "tests/gateway/exporter/trees.h"

namespace {

using modelgate::Position;
using modelgate::rootPosition;
using modelgate::TreeIndex;
using Ids = std::vector<ModelSrv::ModelPartId>;
using Names = std::vector<std::string_view>;

TEST(TreeIndex, FindsPartsByChain) {
  const TreeIndex index(gateway_test::sampleShape());
  EXPECT_EQ(index.find(Ids{}), rootPosition);
  EXPECT_EQ(index.find(Ids{1}), Position{0});
  EXPECT_EQ(index.find(Ids{1, 9, 1}), Position{4});
  EXPECT_EQ(index.find(Ids{5}), Position{8});
  EXPECT_EQ(index.find(Ids{7}), std::nullopt);
  EXPECT_EQ(index.find(Ids{1, 7, 1}), std::nullopt);
}

TEST(TreeIndex, FindsPartsByPath) {
  const TreeIndex index(gateway_test::sampleShape());
  EXPECT_EQ(index.findPath("/"), rootPosition);
  EXPECT_EQ(index.findPath(""), rootPosition);
  EXPECT_EQ(index.findPath("/cpu/deep/x"), Position{4});
  EXPECT_EQ(index.findPath("cpu/load/"), Position{1});
  EXPECT_EQ(index.findPath("/cpu/loa"), std::nullopt);
  EXPECT_EQ(index.findPath("/cpu/load/x"), std::nullopt);
  EXPECT_EQ(index.findPath("/empty/x"), std::nullopt);
}

TEST(TreeIndex, FindsTheFirstOfSeveralWithTheSameName) {
  const TreeIndex index({gateway_test::node(1, 2, "a"), gateway_test::value(2, 1, "x", "text"),
                         gateway_test::node(1, 1, "a"), gateway_test::value(2, 1, "y", "text")});
  EXPECT_EQ(index.findPath("/a"), Position{0});
  EXPECT_EQ(index.findPath("/a/y"), std::nullopt);
}

TEST(TreeIndex, KnowsWhereSubtreesEndAndWhatTheirPartsAreCalled) {
  const TreeIndex index(gateway_test::sampleShape());
  EXPECT_EQ(index.end(rootPosition), Position{9});
  EXPECT_EQ(index.end(0), Position{5});
  EXPECT_EQ(index.end(3), Position{5});
  EXPECT_EQ(index.end(4), Position{5});
  EXPECT_EQ(index.end(8), Position{9});
  EXPECT_EQ(index.chain(4), (Ids{1, 9, 1}));
  EXPECT_EQ(index.names(4), (Names{"cpu", "deep", "x"}));
  EXPECT_EQ(index.names(rootPosition), Names{});
  EXPECT_EQ(index.elements(2), 3U);
  EXPECT_EQ(index.elementNames(2)[1], "b");
  EXPECT_TRUE(index.elementNames(7).empty());
}

TEST(TreeIndex, HasNothingForAnEmptyShape) {
  const TreeIndex index({});
  EXPECT_EQ(index.size(), 0U);
  EXPECT_EQ(index.find(Ids{}), rootPosition);
  EXPECT_EQ(index.find(Ids{0}), std::nullopt);
  EXPECT_EQ(index.end(rootPosition), Position{0});
}

}  // namespace
