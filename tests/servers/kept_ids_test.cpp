#include "servers/kept_ids.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>

#include "tests/servers/published_trees.h"

namespace modelsrvd {
namespace {

struct KeptIdsCase {
  const char* what;
  const char* before;  ///< of each entry its name, and its id if the file states it
  const char* after;
  const char* children;  ///< names and ids after the reload
};

class IdsOfNames : public PublishedTrees {
 protected:
  /// "a b=7" describes an entry a without and an entry b with the id 7.
  static TreeDescription treeOf(const std::string& text) {
    std::istringstream words(text);
    std::string entries;
    for (std::string word; words >> word;) {
      const std::size_t sign = word.find('=');
      entries += (entries.empty() ? R"({"name": ")" : R"(, {"name": ")") + word.substr(0, sign);
      entries += sign == std::string::npos ? "\"" : "\", \"id\": " + word.substr(sign + 1);
      entries += R"(, "type": "bool", "value": true})";
    }
    return nodeWith(entries);
  }
  std::string children() {
    std::string text;
    for (const ModelSrv::ModelPart* part : node().children()) {
      text +=
          (text.empty() ? "" : " ") + std::string(part->name()) + "=" + std::to_string(part->id());
    }
    return text;
  }
};

class KeptIds : public IdsOfNames, public testing::WithParamInterface<KeptIdsCase> {};

TEST_P(KeptIds, AreThoseOfTheSameNames) {
  publish(treeOf(GetParam().before));
  EXPECT_FALSE(tree_->reload(treeOf(GetParam().after)));
  EXPECT_EQ(children(), GetParam().children);
  EXPECT_FALSE(tree_->reload(treeOf(GetParam().after)));
  EXPECT_EQ(children(), GetParam().children) << "again";
}

INSTANTIATE_TEST_SUITE_P(
    Table, KeptIds,
    testing::Values(KeptIdsCase{"Unchanged", "a b c", "a b c", "a=1 b=2 c=3"},
                    KeptIdsCase{"OneMoreInTheMiddle", "a b c", "a x b c", "a=1 x=4 b=2 c=3"},
                    KeptIdsCase{"OneMoreAtTheEnd", "a b", "a b x", "a=1 b=2 x=3"},
                    KeptIdsCase{"OneLess", "a b c", "a c", "a=1 c=3"},
                    KeptIdsCase{"OneReplaced", "a b c", "a x c", "a=1 x=4 c=3"},
                    KeptIdsCase{"OtherOrder", "a b c", "c b a", "c=3 b=2 a=1"},
                    KeptIdsCase{"EqualNames", "a b a", "a x a b", "a=1 x=4 a=3 b=2"},
                    KeptIdsCase{"AStatedIdComesFirst", "a b", "a x=2 b", "a=1 x=2 b=3"},
                    KeptIdsCase{"AStatedIdThatIsMoved", "a b", "b=1 a", "b=1 a=3"},
                    KeptIdsCase{"NoLongerStated", "a=5 b=9", "b a", "b=9 a=5"},
                    KeptIdsCase{"AfterTheLastIdTheLowest", "a b=65533", "x a b=65533",
                                "x=0 a=1 b=65533"}),
    [](const auto& test) { return std::string(test.param.what); });

TEST_F(IdsOfNames, AreNoOtherNamesLater) {
  publish(treeOf("a b"));
  std::map<std::string, std::string> names{{"1", "a"}, {"2", "b"}};
  for (const char* entries : {"c", "a c d", "b", "", "d b a", "e f g h"}) {
    ASSERT_FALSE(tree_->reload(treeOf(entries)));
    for (const ModelSrv::ModelPart* part : node().children()) {
      EXPECT_EQ(names.emplace(std::to_string(part->id()), part->name()).first->second,
                part->name());
    }
  }
  EXPECT_EQ(names.size(), 8U);
}

TEST_F(IdsOfNames, OfANodeThatReturnsAreNoOtherNames) {
  const auto treeOf = [](const std::string& node, const std::string& part) {
    return nodeWith(R"({"name": ")" + node + R"(", "children": [{"name": ")" + part +
                    R"(", "type": "bool", "value": true}]})");
  };
  const auto chain = [this] {
    const auto& inner = dynamic_cast<ModelSrv::ModelNode&>(*onlyPart());
    return std::to_string(inner.id()) + "/" + std::to_string(inner.children().at(0)->id());
  };
  publish(treeOf("n", "a"));
  EXPECT_EQ(chain(), "1/1");
  EXPECT_FALSE(tree_->reload(treeOf("m", "a")));
  EXPECT_EQ(chain(), "2/1");
  EXPECT_FALSE(tree_->reload(treeOf("n", "b")));
  EXPECT_EQ(chain(), "1/2");
  EXPECT_FALSE(tree_->reload(treeOf("n", "a")));
  EXPECT_EQ(chain(), "1/1");
}

TEST_F(IdsOfNames, OfANodeThatWasAPartInBetweenAreNoOtherNames) {
  const auto treeOf = [](const std::string& parts) {
    return nodeWith(R"({"name": "n", "children": [)" + parts + "]}");
  };
  const auto part = [](const std::string& name) {
    return R"({"name": ")" + name + R"(", "type": "bool", "value": true})";
  };
  publish(treeOf(part("a") + "," + part("b")));
  EXPECT_FALSE(tree_->reload(nodeWith(part("n"))));
  EXPECT_FALSE(tree_->reload(treeOf(part("b") + "," + part("c"))));
  const auto& inner = dynamic_cast<ModelSrv::ModelNode&>(*onlyPart());
  EXPECT_EQ(inner.children().at(0)->id(), 2U);
  EXPECT_EQ(inner.children().at(1)->id(), 3U);
}

std::string names(char first, unsigned count) {
  std::string text;
  for (unsigned i = 0; i < count; ++i) {
    text += first + std::to_string(i) + ' ';
  }
  return text;
}

TEST_F(IdsOfNames, OfManyThatLeftBeforeTheLastReloadAreGivenAway) {
  publish(treeOf(names('a', 1100)));
  ASSERT_FALSE(tree_->reload(treeOf("x")));
  EXPECT_EQ(children(), "x=1101");
  ASSERT_FALSE(tree_->reload(treeOf("y")));
  EXPECT_EQ(children(), "y=1102");
  ASSERT_FALSE(tree_->reload(treeOf("z")));
  EXPECT_EQ(children(), "z=1");
}

TEST_F(IdsOfNames, AreGivenAwayWhenThereIsNoOther) {
  publish(treeOf(names('a', 40000)));
  ASSERT_FALSE(tree_->reload(treeOf(names('b', 40000))));
  EXPECT_EQ(node().children().size(), 40000U);
}

TEST_F(IdsOfNames, OfTheRootAreKeptForNamesThatComeBackAfterAnEmptyFile) {
  const auto rootOf = [](const char* first, const char* second) {
    return describe(std::string(R"({"children": [{"name": ")") + first +
                    R"(", "type": "bool", "value": true}, {"name": ")" + second +
                    R"(", "type": "bool", "value": true}]})");
  };
  publish(rootOf("a", "b"));
  EXPECT_FALSE(tree_->reload(describe(R"({"children": []})")));
  EXPECT_TRUE(root_.children().empty());
  EXPECT_FALSE(tree_->reload(rootOf("b", "a")));
  EXPECT_EQ(root_.children().at(0)->id(), 2U);
  EXPECT_EQ(root_.children().at(1)->id(), 1U);
}

}  // namespace
}  // namespace modelsrvd
