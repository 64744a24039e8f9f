#include "servers/published_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "tests/servers/published_trees.h"

namespace modelsrvd {
namespace {

using ModelSrv::ModelNode;
using ModelSrv::ModelPart;

struct TypeCase {
  const char* type;
  const char* value;
  const char* text;
};

class EveryType : public PublishedTrees, public testing::WithParamInterface<TypeCase> {};

TEST_P(EveryType, CanBeASingleValueAndAnArray) {
  const std::string type = std::string(R"({"type": ")") + GetParam().type + '"';
  const std::string value = std::string(R"("value": )") + GetParam().value;
  publish(nodeWith(type + ", " + value + "}"));
  EXPECT_EQ(textOf(*onlyPart()), GetParam().text);
  publish(nodeWith(type + R"(, "elements": [{)" + value + "}, {" + value + "}]}"));
  EXPECT_EQ(textOf(*onlyPart()), std::string(GetParam().text) + "\n" + GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Table, EveryType,
    testing::Values(TypeCase{"bool", "true", "true"}, TypeCase{"int8", "-128", "-128"},
                    TypeCase{"int16", "-32768", "-32768"}, TypeCase{"int32", "-5", "-5"},
                    TypeCase{"int64", "-9223372036854775808", "-9223372036854775808"},
                    TypeCase{"uint8", "255", "255"}, TypeCase{"uint16", "65535", "65535"},
                    TypeCase{"uint32", "4294967295", "4294967295"},
                    TypeCase{"uint64", "18446744073709551615", "18446744073709551615"},
                    TypeCase{"float", "0.1", "0.1"}, TypeCase{"double", "0.1", "0.1"},
                    TypeCase{"text", "\"two words\"", "two words"}),
    [](const auto& test) { return std::string(test.param.type); });

TEST_F(PublishedTrees, KeepsIdNameAccessAndSubscribability) {
  publish(nodeWith(R"({"id": 9, "name": "serial", "type": "text", "value": "A-17",
                     "access": "protected", "subscribable": false})"));
  EXPECT_EQ(onlyPart()->id(), 9U);
  EXPECT_EQ(onlyPart()->name(), "serial");
  EXPECT_EQ(onlyPart()->status(), ModelSrv::ModelPartStatus_Protected);
  EXPECT_FALSE(onlyPart()->subscribable());
}

TEST_F(PublishedTrees, ReturnsAnErrorForAttributesThatTheLibraryRefuses) {
  const auto refused = [](TreeDescription description) {
    auto details = std::make_shared<EntryDetails>();
    details->attributes.unit = "a\nb";
    description.entries.back().details = std::move(details);
    return description;
  };
  const TreeDescription valid = nodeWith(R"({"name": "t", "type": "uint8", "value": 1})");
  PublishedTree tree(refused(valid));
  ASSERT_TRUE(tree.publish(root_));
  EXPECT_EQ(tree.publish(root_)->text, "t: an argument is outside what the operation takes");
  publish(valid);
  EXPECT_TRUE(tree_->reload(refused(valid)));
  EXPECT_TRUE(tree_->reload(refused(nodeWith(R"({"name": "t", "type": "int8", "value": 1})"))));
  EXPECT_FALSE(tree_->reload(valid));
}

TEST_F(PublishedTrees, LeavesTheRootEmptyWhenDestroyed) {
  publish(nodeWith(R"({"type": "bool", "value": true})"));
  EXPECT_EQ(root_.children().size(), 1U);
  tree_.reset();
  EXPECT_TRUE(root_.children().empty());
}

TEST_F(PublishedTrees, SupportsTheMaximumDepth) {
  std::string text;
  for (int level = 0; level < 4096; ++level) {
    text += R"({"children":[)";
  }
  text += R"({"type":"bool","value":true})";
  for (int level = 0; level < 4096; ++level) {
    text += "]}";
  }
  publish(describe(text));
  tree_.reset();
  EXPECT_TRUE(root_.children().empty());
}

constexpr std::string_view array =
    R"({"type": "uint8", "elements": [{"name": "a", "value": 1}, {"value": 2}]})";

TEST_F(PublishedTrees, ReloadsValuesInPlace) {
  publish(nodeWith(std::string(array)));
  ModelPart* const part = onlyPart();
  EXPECT_FALSE(tree_->reload(
      nodeWith(R"({"type": "uint8", "elements": [{"name": "a", "value": 7}, {"value": 8}]})")));
  EXPECT_EQ(onlyPart(), part);
  EXPECT_EQ(textOf(*part), "7\n8");
}

TEST_F(PublishedTrees, ReloadsWhetherAPartIsSubscribableInPlace) {
  publish(nodeWith(R"({"type": "uint8", "value": 1})"));
  ModelPart* const part = onlyPart();
  for (const bool subscribable : {false, true}) {
    EXPECT_FALSE(tree_->reload(nodeWith(std::string(R"({"type": "uint8", "value": 1)") +
                                        (subscribable ? "}" : R"(, "subscribable": false})"))));
    EXPECT_EQ(onlyPart(), part);
    EXPECT_EQ(part->subscribable(), subscribable);
  }
}

TEST_F(PublishedTrees, ReloadKeepsTheRestOfTheTree) {
  const std::string same = R"({"id": 3, "name": "same", "children": [
    {"name": "value", "type": "int8", "value": 1},
    {"name": "array", "type": "text", "elements": [{"name": "a", "value": "x"}]},
    {"children": []}]})";
  const auto tree = [&same](const std::string& before, const std::string& after) {
    return describe(R"({"children": [)" + before + same + after + "]}");
  };
  const std::string other = R"({"id": 7, "name": "other", "children": [)" + same + "]}";
  publish(tree("", "," + other));
  const auto& node = dynamic_cast<ModelNode&>(*root_.findChild(3));
  const std::vector<ModelPart*> children = node.children();
  for (const auto& description : {tree(other + ",", ""), tree("", ""), tree("", "," + other)}) {
    EXPECT_FALSE(tree_->reload(description));
    EXPECT_EQ(root_.findChild(3), &node);
    EXPECT_EQ(node.children(), children);
    std::vector<unsigned> ids;
    for (const Entry& entry : description.entries) {
      if (entry.parent == rootEntry) {
        ids.push_back(entry.id);
      }
    }
    std::vector<unsigned> present;
    for (const ModelPart* child : root_.children()) {
      present.push_back(child->id());
    }
    EXPECT_EQ(present, ids);
  }
}

TEST_F(PublishedTrees, ReloadsManyTimesWithinTheSameMemory) {
  for (int i = 0; i < 100; ++i) {
    const std::string entries = R"({"name": "n", "children": [{"name": "v", "type": "int8",
        "value": )" + std::to_string(i) +
                                R"(}]}, {"name": "o)" + std::to_string(i % 2) +
                                R"(", "type": "bool", "value": true})";
    if (tree_ == nullptr) {
      publish(nodeWith(entries));
    }
    EXPECT_FALSE(tree_->reload(nodeWith(entries)));
    auto& top = dynamic_cast<ModelNode&>(*root_.children().at(0));
    ASSERT_EQ(top.children().size(), 2U);
    EXPECT_EQ(textOf(*dynamic_cast<ModelNode&>(*top.children()[0]).children().at(0)),
              std::to_string(i));
  }
  tree_.reset();
  EXPECT_TRUE(root_.children().empty());
}

/// The time that this thread has used, which other programs do not lengthen.
std::chrono::nanoseconds threadTime() {
  timespec now{};
  EXPECT_EQ(clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now), 0);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

TEST_F(PublishedTrees, ReloadsALargeNodeInShortTime) {
  const auto many = [](std::size_t first, std::size_t step) {
    std::string entries;
    for (std::size_t id = 0; id < 60'000; ++id) {
      entries += (id == 0 ? "" : ",") + std::string(R"({"name": "item_)") +
                 std::to_string(first + id * step) + R"(", "type": "bool", "value": true})";
    }
    return nodeWith(entries);
  };
  publish(many(0, 1));
  TreeDescription half = many(30'000, 2);
  TreeDescription all = many(1, 1);
  const auto begun = threadTime();
  EXPECT_FALSE(tree_->reload(std::move(half)));
  EXPECT_FALSE(tree_->reload(std::move(all)));
  // With a search of all siblings for each of them it is minutes.
  EXPECT_LT(threadTime() - begun, std::chrono::seconds(20));
}

/// Everything that clients can see of `part` and what is below it.
std::string contentOf(ModelPart& part) {
  std::ostringstream text;
  text << part.id() << ' ' << part.name() << ' ' << part.status() << ' ' << part.subscribable();
  if (auto* node = dynamic_cast<ModelNode*>(&part)) {
    for (ModelPart* child : node->children()) {
      text << " (" << contentOf(*child) << ')';
    }
  } else if (part.save(text, ModelSrv::ModelPartIndex_All) != ModelSrv::ModelRes_Success) {
    text << '?';
  }
  return text.str();
}

/// The children of a random node, all with stated ids.
std::string randomEntries(std::mt19937& random, int depth) {
  const auto below = [&random](unsigned limit) { return static_cast<unsigned>(random() % limit); };
  std::vector<unsigned> ids{0, 1, 2, 3, 4};
  std::shuffle(ids.begin(), ids.end(), random);
  ids.resize(below(4));
  std::string entries;
  for (const unsigned id : ids) {
    entries += (entries.empty() ? "" : ", ") + std::string(R"({"id": )") + std::to_string(id) +
               R"(, "name": ")" + std::string(1, static_cast<char>('a' + below(2))) + '"';
    if (depth > 0 && below(2) == 0) {
      entries += R"(, "children": [)" + randomEntries(random, depth - 1) + "]}";
      continue;
    }
    entries += below(4) == 0 ? R"(, "access": "read-only")" : "";
    entries += below(4) == 0 ? R"(, "subscribable": false)" : "";
    entries += R"(, "type": ")" + std::string(below(4) == 0 ? "int8" : "int16") + '"';
    const std::string value = R"("value": )" + std::to_string(below(3));
    entries +=
        below(3) == 0 ? R"(, "elements": [{)" + value + R"(}, {"value": 1}]})" : ", " + value + "}";
  }
  return entries;
}

TEST_F(PublishedTrees, ReloadGivesTheTreeThatAFreshServerHas) {
  std::mt19937 random(20);
  publish(nodeWith(""));
  for (int round = 0; round < 500; ++round) {
    const std::string text = R"({"children": [)" + randomEntries(random, 3) + "]}";
    ASSERT_FALSE(tree_->reload(describe(text)));
    ModelSrv::ModelRoot root(&manager_);
    PublishedTree fresh(describe(text));
    ASSERT_FALSE(fresh.publish(root));
    ASSERT_EQ(contentOf(root_), contentOf(root)) << text;
  }
}

struct StructureCase {
  const char* what;
  const char* entry;
};

class OtherStructure : public PublishedTrees, public testing::WithParamInterface<StructureCase> {};

TEST_P(OtherStructure, ReplacesThePart) {
  publish(nodeWith(std::string(array)));
  const ModelPart* const node = root_.children().at(0);
  const ModelPart* const part = onlyPart();
  EXPECT_FALSE(tree_->reload(nodeWith(GetParam().entry)));
  EXPECT_EQ(root_.children().at(0), node);
  EXPECT_NE(onlyPart(), part);
}

INSTANTIATE_TEST_SUITE_P(
    Table, OtherStructure,
    testing::Values(
        StructureCase{"Type",
                      R"({"type": "int8", "elements": [{"name": "a", "value": 7}, {"value": 8}]})"},
        StructureCase{
            "ElementName",
            R"({"type": "uint8", "elements": [{"name": "b", "value": 7}, {"value": 8}]})"},
        StructureCase{"NoElementNames",
                      R"({"type": "uint8", "elements": [{"value": 7}, {"value": 8}]})"},
        StructureCase{"ElementCount",
                      R"({"type": "uint8", "elements": [{"name": "a", "value": 7}]})"},
        StructureCase{"Single", R"({"type": "uint8", "value": 7})"},
        StructureCase{"Name", R"({"name": "x", "type": "uint8",
                          "elements": [{"name": "a", "value": 7}, {"value": 8}]})"},
        StructureCase{"Id", R"({"id": 2, "type": "uint8",
                        "elements": [{"name": "a", "value": 7}, {"value": 8}]})"},
        StructureCase{"Access", R"({"access": "read-only", "type": "uint8",
                            "elements": [{"name": "a", "value": 7}, {"value": 8}]})"},
        StructureCase{"Node", R"({"children": []})"}),
    [](const auto& test) { return std::string(test.param.what); });

}  // namespace
}  // namespace modelsrvd
