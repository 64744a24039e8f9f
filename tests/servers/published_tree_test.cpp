#include "servers/published_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <variant>

#include "servers/description_parser.h"

namespace modelsrvd {
namespace {

using ModelSrv::ModelNode;
using ModelSrv::ModelPart;

TreeDescription describe(std::string_view text) {
  auto result = parseTreeDescription(text);
  if (const auto* error = std::get_if<Error>(&result)) {
    ADD_FAILURE() << error->text;
    return {};
  }
  return std::get<TreeDescription>(std::move(result));
}

TreeDescription nodeWith(const std::string& entry) {
  return describe(R"({"children": [{"children": [)" + entry + "]}]}");
}

class PublishedTrees : public testing::Test {
 protected:
  void publish(const TreeDescription& description) {
    tree_ = std::make_unique<PublishedTree>(description);
    EXPECT_FALSE(tree_->publish(root_));
  }
  ModelPart* onlyPart() {
    auto& node = dynamic_cast<ModelNode&>(*root_.children().at(0));
    return node.children().at(0);
  }
  static std::string textOf(ModelPart& part) {
    std::ostringstream text;
    EXPECT_EQ(part.save(text, ModelSrv::ModelPartIndex_All), ModelSrv::ModelRes_Success);
    return text.str();
  }

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  ModelSrv::ModelRoot root_{&manager_};
  std::unique_ptr<PublishedTree> tree_;
};

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

TEST_F(PublishedTrees, UpdatesValuesInPlace) {
  publish(nodeWith(std::string(array)));
  ModelPart* const part = onlyPart();
  EXPECT_TRUE(tree_->updateValues(
      nodeWith(R"({"type": "uint8", "elements": [{"name": "a", "value": 7}, {"value": 8}]})")));
  EXPECT_EQ(onlyPart(), part);
  EXPECT_EQ(textOf(*part), "7\n8");
}

struct StructureCase {
  const char* what;
  const char* entry;
};

class OtherStructure : public PublishedTrees, public testing::WithParamInterface<StructureCase> {};

TEST_P(OtherStructure, IsNotUpdatedInPlace) {
  publish(nodeWith(std::string(array)));
  EXPECT_FALSE(tree_->updateValues(nodeWith(GetParam().entry)));
  EXPECT_EQ(textOf(*onlyPart()), "1\n2");
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
        StructureCase{"Subscribable", R"({"subscribable": false, "type": "uint8",
                                  "elements": [{"name": "a", "value": 7}, {"value": 8}]})"},
        StructureCase{"Node", R"({"children": []})"},
        StructureCase{"OneMore",
                      R"({"type": "uint8", "elements": [{"name": "a", "value": 7}, {"value": 8}]},
                            {"children": []})"},
        StructureCase{"Nothing", ""}),
    [](const auto& test) { return std::string(test.param.what); });

}  // namespace
}  // namespace modelsrvd
