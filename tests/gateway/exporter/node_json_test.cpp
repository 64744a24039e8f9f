#include "gateway/exporter/node_json.h"

#include <gtest/gtest.h>

#include "gateway/exporter/json_topics.h"
#include "gateway/exporter/paced_set.h"
#include "tests/gateway/exporter/trees.h"

namespace {

using modelgate::JsonTopics;
using modelgate::nodeJson;
using modelgate::rootPosition;
using ModelSrv::ModelRes_Success;

const modelgate::PacedSet::Clock::time_point jsonStart{std::chrono::hours(1)};

struct NodeJson : testing::Test {
  void set(modelgate::Position position, std::string_view text) {
    tree->values.set(position, ModelRes_Success, text);
  }
  std::string json(modelgate::Position position) {
    return nodeJson(tree->index, tree->values, position);
  }
  std::shared_ptr<modelgate::ServedTree> tree = gateway_test::sampleTree();
};

TEST_F(NodeJson, HasNumbersTextsAndBooleans) {
  set(5, "gate \"7\"\n");
  set(6, "true");
  set(7, "a\n");
  EXPECT_EQ(json(rootPosition), R"({"name":"gate \"7\"\n","#3":true,"notes_0":"a","notes_1":""})");
  set(1, "1e+20");
  set(2, "1\n2\n18446744073709551615");
  EXPECT_EQ(json(0), R"({"load":1e+20,"cores_a":1,"cores_b":2,"cores_c":18446744073709551615})");
  EXPECT_EQ(json(8), "{}");
}

TEST_F(NodeJson, HasNullForWhatJsonDoesNotHave) {
  set(1, "nan");
  set(2, "1\n-\n[3]");
  EXPECT_EQ(json(0), R"({"load":null,"cores_a":1,"cores_b":null,"cores_c":null})");
  tree->values.set(2, ModelSrv::ModelRes_Unreachable, {});
  set(1, "-0.5");
  EXPECT_EQ(json(0), R"({"load":-0.5,"cores":null})");
}

TEST_F(NodeJson, IsValidForAnyBytes) {
  set(4, "a\xFFz");
  EXPECT_EQ(json(3), "{\"x\":\"a\xEF\xBF\xBDz\"}");
  tree->values.setElements(7, {"a\nb", "c"});
  EXPECT_EQ(json(7), R"({"value_0":"a\nb","value_1":"c"})");
}

TEST_F(NodeJson, HasNullForWhatNoMessageHolds) {
  const std::string large(std::size_t{3} * 1024 * 1024, 'x');
  set(5, large);
  set(7, large + "\nb");
  EXPECT_TRUE(json(rootPosition) ==
              "{\"name\":\"" + large + R"(","#3":null,"notes_0":null,"notes_1":"b"})");
  set(5, std::string(large.size(), '\xFF'));
  EXPECT_EQ(json(5), R"({"value":null})");
}

TEST_F(NodeJson, HasTheFirstOfSeveralMembersWithOneName) {
  const modelgate::Shape shape{gateway_test::value(1, 1, "a", "text"),
                               gateway_test::value(1, 2, "a", "text")};
  const modelgate::TreeIndex index(shape);
  modelgate::ValueTable values(index);
  values.set(0, ModelRes_Success, "1");
  values.set(1, ModelRes_Success, "2");
  EXPECT_EQ(nodeJson(index, values, rootPosition), R"({"a":"1"})");
}

TEST_F(NodeJson, IsPublishedForTheNodesThatRulesName) {
  const modelgate::Topics topics("f", "d");
  const auto topicsOf = [&](std::vector<std::string> rules) {
    return JsonTopics(topics, "host", modelgate::PathRules(rules), tree).topics();
  };
  EXPECT_EQ(topicsOf({}), std::vector<std::string>{});
  EXPECT_EQ(topicsOf({"/"}),
            (std::vector<std::string>{"ts/1/f/d/j/host", "ts/1/f/d/j/host/cpu",
                                      "ts/1/f/d/j/host/cpu/deep", "ts/1/f/d/j/host/empty"}));
  EXPECT_EQ(topicsOf({"/host/cpu/deep", "/other/empty", "/name"}),
            (std::vector<std::string>{"ts/1/f/d/j/host/cpu/deep", "ts/1/f/d/j/host/name"}));
}

TEST_F(NodeJson, IsPublishedAtMostOnceASecond) {
  const std::vector<std::string> rules{"/cpu"};
  JsonTopics json(modelgate::Topics("f", "d"), "host", modelgate::PathRules(rules), tree);
  set(1, "1");
  const auto first = json.take(jsonStart);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->topic, "ts/1/f/d/j/host/cpu");
  EXPECT_EQ(first->qos, 1);
  EXPECT_TRUE(first->retain);
  ASSERT_TRUE(json.take(jsonStart));  // of /cpu/deep
  EXPECT_FALSE(json.take(jsonStart));
  EXPECT_FALSE(json.deadline());
  json.change(1);
  json.change(2);
  json.change(5);  // not published
  EXPECT_EQ(json.deadline(), jsonStart + JsonTopics::period);
  EXPECT_FALSE(json.take(jsonStart + std::chrono::milliseconds(999)));
  ASSERT_TRUE(json.take(jsonStart + JsonTopics::period));
  EXPECT_FALSE(json.deadline());
  json.changeAll();
  ASSERT_TRUE(json.take(jsonStart + JsonTopics::period));
}

}  // namespace
