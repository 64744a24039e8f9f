#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <variant>

#include "modelsrv/part_description.h"
#include "servers/description_parser.h"
#include "servers/host_tree.h"
#include "servers/options.h"
#include "servers/published_tree.h"
#include "tests/support/model_server.h"

// The attributes of parts in description files and in the live tree.

namespace modelsrvd {
namespace {

using ModelSrv::PartAttributes;

/// A description with the one entry `{"name": "t", ENTRY}`.
Result<TreeDescription> parsedEntry(std::string_view entry) {
  return parseTreeDescription(R"({"children": [{"name": "t", )" + std::string(entry) + "}]}");
}

std::string entryError(std::string_view entry) {
  const auto result = parsedEntry(entry);
  const auto* error = std::get_if<Error>(&result);
  return error == nullptr ? "parsed" : error->text;
}

PartAttributes attributesOf(std::string_view entry) {
  const auto result = parsedEntry(entry);
  const auto* tree = std::get_if<TreeDescription>(&result);
  EXPECT_NE(tree, nullptr) << entryError(entry);
  return tree != nullptr && tree->entries[0].details ? tree->entries[0].details->attributes
                                                     : PartAttributes();
}

TEST(DescribedAttributes, AreReadAsTextsOfThePartsType) {
  EXPECT_EQ(attributesOf(R"("type": "int32", "value": 1)"), PartAttributes());
  EXPECT_EQ(attributesOf(R"("type": "int8", "value": 20, "unit": "°C", "minimum": -5,
                            "maximum": 30, "text": "set point")"),
            (PartAttributes{"°C", "-5", "30", "set point", {}}));
  EXPECT_EQ(attributesOf(R"("type": "float", "value": 0.1, "minimum": 0.1, "maximum": 1e10)"),
            (PartAttributes{"", "0.1", "1e+10", "", {}}));
  EXPECT_EQ(attributesOf(R"("type": "uint64", "value": 1, "maximum": 18446744073709551615)"),
            (PartAttributes{"", "", "18446744073709551615", "", {}}));
  EXPECT_EQ(attributesOf(R"("type": "text", "value": "a", "choices": ["a", "", "ö"])"),
            (PartAttributes{"", "", "", "", {"a", "", "ö"}}));
  EXPECT_EQ(attributesOf(R"("text": "a node", "children": [])"),
            (PartAttributes{"", "", "", "a node", {}}));
}

TEST(DescribedAttributes, AreRejectedWithTheirPathIfWrong) {
  const struct {
    const char* entry;
    const char* error;
  } cases[] = {
      {R"("type": "int8", "value": 1, "minimum": 200)",
       "/children/0/minimum: 200 is out of range for int8"},
      {R"("type": "text", "value": "", "minimum": 1)", "/children/0/minimum: not allowed for text"},
      {R"("type": "bool", "value": true, "choices": [true])",
       "/children/0/choices: not allowed for bool"},
      {R"("type": "int8", "value": 1, "minimum": 5, "maximum": 4)",
       "/children/0/maximum: 4 is less than the minimum 5"},
      {R"("type": "int8", "value": 99, "minimum": 5, "maximum": 30)",
       "/children/0/value: 99 is not within 5 to 30"},
      {R"("type": "int8", "elements": [{"value": 5}, {"value": 4}], "minimum": 5)",
       "/children/0/elements/1/value: 4 is not within 5 to any number"},
      {R"("type": "text", "value": "c", "choices": ["a", "b"])",
       R"(/children/0/value: "c" is not one of the choices)"},
      {R"("type": "text", "value": "\u001b[2J\n12345678901234567890123456789012345678901", "choices": ["a"])",
       R"(/children/0/value: "\x1b[2J\x0a12345678901234567890123456789012345…" is not one of the choices)"},
      {R"("type": "text", "value": "a", "choices": ["a", "b\u0007"])",
       R"(/children/0/choices/1: control characters in "b\x07")"},
      {R"("type": "int8", "value": 1, "choices": [1, "b"])",
       R"(/children/0/choices/1: expected an integer for int8, got "b")"},
      {R"("type": "int8", "value": 1, "choices": [1, [2]])",
       "/children/0/choices/1: expected a single value, got an array"},
      {R"("type": "int8", "value": 1, "choices": [1, {}])",
       "/children/0/choices/1: expected a single value, got an object"},
      {R"("type": "int8", "value": 1, "choices": [])",
       "/children/0/choices: expected at least one choice, got none"},
      {R"("type": "int8", "value": 1, "choices": 1)",
       "/children/0/choices: expected an array of values, got 1"},
      {R"("type": "int8", "value": 1, "unit": 7)", "/children/0/unit: expected a string, got 7"},
      {R"("type": "int8", "value": 1, "unit": "a\tb")",
       R"(/children/0/unit: control characters in "a\x09b")"},
      {R"("type": "int8", "value": 1, "unit": {})",
       "/children/0/unit: expected a string, got an object"},
      {R"("unit": "V", "children": [])",
       R"(/children/0/unit: not allowed together with "children")"},
      {R"("type": "text", "elements": [{"value": "", "unit": "V"}])",
       "/children/0/elements/0/unit: unknown key"}};
  for (const auto& c : cases) {
    EXPECT_EQ(entryError(c.entry), c.error);
  }
  const std::string longText(513, 'x');
  EXPECT_EQ(entryError(R"("type": "int8", "value": 1, "text": ")" + longText + '"'),
            "/children/0/text: longer than 512 bytes");
}

TEST(DescribedAttributes, OfAPublishedTreeFollowTheFile) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  ModelSrv::ModelRoot root(&manager);
  const auto tree = [](std::string_view entry) {
    return std::get<TreeDescription>(parsedEntry(entry));
  };
  PublishedTree published(tree(R"("type": "int32", "value": 1, "unit": "V", "maximum": 7)"));
  ASSERT_FALSE(published.publish(root));
  ModelSrv::ModelPart& part = *root.children().at(0);
  EXPECT_EQ(part.attributes(), (PartAttributes{"V", "", "7", "", {}}));
  EXPECT_FALSE(published.reload(tree(R"("type": "int32", "value": 9, "unit": "A")")));
  EXPECT_EQ(part.attributes(), (PartAttributes{"A", "", "", "", {}}));
  EXPECT_FALSE(published.reload(tree(R"("type": "int32", "value": 9)")));
  EXPECT_EQ(part.attributes(), PartAttributes());
}

TEST(LiveAttributes, AreUnitsAndTheLimitsOfTheSettings) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  ModelSrv::ModelRoot root(&manager);
  HostTree tree(1000);
  ASSERT_FALSE(tree.publish(root));
  const auto find = [&](const char* node, const char* name) -> ModelSrv::ModelPart* {
    for (ModelSrv::ModelPart* child : root.children()) {
      const auto& parts = dynamic_cast<ModelSrv::ModelNode&>(*child).children();
      for (ModelSrv::ModelPart* part : parts) {
        if (child->name() == node && part->name() == name) {
          return part;
        }
      }
    }
    return nullptr;
  };
  EXPECT_EQ(find("memory", "free")->attributes().unit, "bytes");
  EXPECT_EQ(find("host", "uptime")->attributes().unit, "seconds");
  const PartAttributes period = find("settings", "period")->attributes();
  EXPECT_EQ(period.minimum, std::to_string(minPeriod));
  EXPECT_EQ(period.maximum, std::to_string(maxPeriod));
}

TEST(LiveAttributes, GiveTheReasonOfARefusedPeriod) {
  test_support::ModelServer server({"--period", "1000"});
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  ModelSrv::ModelRoot root(&manager);
  ModelSrv::ModelNode settings(8);
  ModelSrv::ModelPart period(1);
  ASSERT_EQ(root.add(&settings), ModelSrv::ModelRes_Success);
  ASSERT_EQ(settings.add(&period), ModelSrv::ModelRes_Success);
  ASSERT_EQ(root.startAsClient(server.name(), ModelSrv::ModelRoot::CachePeriod_Stop, 0),
            ModelSrv::ModelRes_Success);
  std::string reason;
  EXPECT_EQ(period.store("7", false, ModelSrv::ModelPartIndex_All, reason),
            ModelSrv::ModelRes_OutOfRange);
  EXPECT_EQ(reason, "period 7 is not within 50 to 60000");
}

}  // namespace
}  // namespace modelsrvd
