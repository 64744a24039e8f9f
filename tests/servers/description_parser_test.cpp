#include "servers/description_parser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace modelsrvd {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

TreeDescription accepted(std::string_view text) {
  auto result = parseTreeDescription(text);
  if (const auto* error = std::get_if<Error>(&result)) {
    ADD_FAILURE() << error->text;
    return {};
  }
  return std::get<TreeDescription>(std::move(result));
}

std::string refused(std::string_view text) {
  const auto result = parseTreeDescription(text);
  const auto* error = std::get_if<Error>(&result);
  return error == nullptr ? "accepted" : error->text;
}

/// A description whose root has the one child `entry`.
std::string around(std::string_view entry) {
  return R"({"name": "Model_t", "children": [)" + std::string(entry) + "]}";
}

constexpr std::string_view sample = R"({"name": "Model_rig", "children": [
  {"id": 1, "name": "drive", "children": [
    {"id": 1, "name": "speed", "type": "int32", "value": 42},
    {"id": 2, "name": "label", "type": "text", "value": "two words"},
    {"id": 3, "name": "gains", "type": "double",
     "elements": [{"name": "p", "value": 1.5}, {"name": "i", "value": 0.25}]},
    {"id": 4, "name": "raw", "type": "uint8", "elements": [{"value": 1}, {"value": 2}]},
    {"id": 5, "name": "serial", "type": "text", "value": "A-17", "access": "read-only"},
    {"id": 6, "name": "offset", "type": "float", "value": 0, "access": "protected"},
    {"id": 7, "name": "secret", "type": "bool", "value": false, "subscribable": false},
    {"id": 12, "name": "", "type": "uint16", "value": 7}]},
  {"id": 2, "name": "empty", "children": []}]})";

TEST(DescriptionParser, KeepsNodesPartsAndTheirOrder) {
  const TreeDescription tree = accepted(sample);
  EXPECT_EQ(tree.name, "Model_rig");
  ASSERT_EQ(tree.entries.size(), 10U);
  EXPECT_EQ(tree.entries[0].parent, rootEntry);
  EXPECT_EQ(tree.entries[0].type, EntryType::node);
  EXPECT_EQ(tree.entries[0].name, "drive");
  EXPECT_EQ(tree.entries[1].parent, 0U);
  EXPECT_EQ(tree.entries[1].type, EntryType::int32);
  EXPECT_THAT(tree.entries[1].values, ElementsAre(EntryValue(std::int64_t{42})));
  EXPECT_THAT(tree.entries[2].values, ElementsAre(EntryValue(std::string("two words"))));
  EXPECT_EQ(tree.entries[8].id, 12U);
  EXPECT_EQ(tree.entries[8].name, "");
  EXPECT_EQ(tree.entries[9].parent, rootEntry);
  EXPECT_THAT(tree.entries[9].values, IsEmpty());
}

TEST(DescriptionParser, KeepsElementsWithAndWithoutNames) {
  const TreeDescription tree = accepted(sample);
  ASSERT_EQ(tree.entries.size(), 10U);
  EXPECT_TRUE(tree.entries[3].array);
  EXPECT_THAT(tree.entries[3].elementNames, ElementsAre("p", "i"));
  EXPECT_THAT(tree.entries[3].values, ElementsAre(EntryValue(1.5), EntryValue(0.25)));
  EXPECT_THAT(tree.entries[4].elementNames, IsEmpty());
  EXPECT_THAT(tree.entries[4].values,
              ElementsAre(EntryValue(std::uint64_t{1}), EntryValue(std::uint64_t{2})));
}

TEST(DescriptionParser, NamesEveryElementWhereOneIsNamed) {
  const TreeDescription tree = accepted(
      around(R"({"type": "bool", "elements": [{"value": true}, {"value": true, "name": "b"}]})"));
  ASSERT_EQ(tree.entries.size(), 1U);
  EXPECT_THAT(tree.entries[0].elementNames, ElementsAre("", "b"));
}

TEST(DescriptionParser, KeepsAccessAndSubscribability) {
  const TreeDescription tree = accepted(sample);
  ASSERT_EQ(tree.entries.size(), 10U);
  EXPECT_EQ(tree.entries[1].access, ModelSrv::ModelPartStatus_ReadWrite);
  EXPECT_TRUE(tree.entries[1].subscribable);
  EXPECT_EQ(tree.entries[5].access, ModelSrv::ModelPartStatus_ReadOnly);
  EXPECT_EQ(tree.entries[6].access, ModelSrv::ModelPartStatus_Protected);
  EXPECT_FALSE(tree.entries[7].subscribable);
  EXPECT_EQ(
      accepted(around(R"({"type":"bool","value":true,"access":"read-write"})")).entries[0].access,
      ModelSrv::ModelPartStatus_ReadWrite);
}

TEST(DescriptionParser, TakesTheKeysOfAnEntryInAnyOrder) {
  const TreeDescription tree =
      accepted(R"({"children": [{"value": 5, "type": "uint8", "name": "a", "id": 9}],
                   "name": "Model_t"})");
  EXPECT_EQ(tree.name, "Model_t");
  ASSERT_EQ(tree.entries.size(), 1U);
  EXPECT_EQ(tree.entries[0].id, 9U);
  EXPECT_EQ(tree.entries[0].name, "a");
}

TEST(DescriptionParser, NumbersAChildWithoutAnIdBehindItsElderSibling) {
  const TreeDescription tree = accepted(
      around(R"({"children": []}, {"id": 7, "children": []}, {"children": [{"children": []}]})"));
  ASSERT_EQ(tree.entries.size(), 4U);
  EXPECT_EQ(tree.entries[0].id, 1U);
  EXPECT_EQ(tree.entries[1].id, 7U);
  EXPECT_EQ(tree.entries[2].id, 8U);
  EXPECT_EQ(tree.entries[3].id, 1U);
}

TEST(DescriptionParser, TakesTheLeastAndTheLargestId) {
  const TreeDescription tree =
      accepted(around(R"({"id": 65533, "children": []}, {"id": 0, "children": []})"));
  ASSERT_EQ(tree.entries.size(), 2U);
  EXPECT_EQ(tree.entries[0].id, 65533U);
  EXPECT_EQ(tree.entries[1].id, 0U);
}

struct Case {
  const char* what;
  const char* entry;
  const char* text;
};

class RefusedEntry : public testing::TestWithParam<Case> {};

TEST_P(RefusedEntry, IsNamedByItsPath) {
  EXPECT_EQ(refused(around(GetParam().entry)), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Shape, RefusedEntry,
    testing::Values(
        Case{"NotAnObject", "5", "/children/0: a number stands where an object is wanted"},
        Case{"AnArray", "[]", "/children/0: an array stands where an object is wanted"},
        Case{"UnknownKey", R"({"colour": 1})", "/children/0/colour: unknown key"},
        Case{"KeyThatIsNoName", R"({"a\nb": 1})", "/children/0/a\\x0ab: unknown key"},
        Case{"DoubledKey", R"({"id": 1, "id": 2})", "/children/0/id: the key is there twice"},
        Case{"Nothing", "{}", R"(/children/0: "children", "value" or "elements" is missing)"},
        Case{"TypeWithoutValue", R"({"type": "bool"})",
             R"(/children/0: "children", "value" or "elements" is missing)"},
        Case{"ValueWithoutType", R"({"value": 1})", R"(/children/0: "type" is missing)"},
        Case{"ValueAndElements", R"({"type": "int8", "value": 1, "elements": [{"value": 1}]})",
             R"(/children/0/elements: not together with "value")"},
        Case{"ChildrenAndType", R"({"children": [], "type": "int8"})",
             R"(/children/0/type: not together with "children")"},
        Case{"ChildrenAndAccess", R"({"access": "read-only", "children": []})",
             R"(/children/0/access: not together with "children")"},
        Case{"ChildrenNoArray", R"({"children": {}})",
             "/children/0/children: an object stands where an array of entries is wanted"},
        Case{"ElementsNoArray", R"({"type": "int8", "elements": 3})",
             "/children/0/elements: a number stands where an array of elements is wanted"},
        Case{"NoElements", R"({"type": "int8", "elements": []})",
             "/children/0/elements: an array has at least one element"},
        Case{"ElementNoObject", R"({"type": "int8", "elements": [1]})",
             "/children/0/elements/0: a number stands where an object is wanted"},
        Case{"ElementWithoutValue", R"({"type": "int8", "elements": [{"value": 1}, {}]})",
             R"(/children/0/elements/1: "value" is missing)"},
        Case{"ElementWithType", R"({"elements": [{"type": "int8"}]})",
             "/children/0/elements/0/type: unknown key"},
        Case{"ArrayAsValue", R"({"type": "int8", "value": [1]})",
             "/children/0/value: an array stands where a single value is wanted"},
        Case{"ObjectAsValue", R"({"type": "int8", "value": {"a": 1}})",
             "/children/0/value: an object stands where a single value is wanted"}),
    [](const auto& test) { return std::string(test.param.what); });

INSTANTIATE_TEST_SUITE_P(
    Keys, RefusedEntry,
    testing::Values(
        Case{"IdTooLarge", R"({"id": 65534})",
             "/children/0/id: not a whole number from 0 to 65533"},
        Case{"IdNegative", R"({"id": -1})", "/children/0/id: not a whole number from 0 to 65533"},
        Case{"IdWithFraction", R"({"id": 1.0})",
             "/children/0/id: not a whole number from 0 to 65533"},
        Case{"IdAsText", R"({"id": "1"})", "/children/0/id: not a whole number from 0 to 65533"},
        Case{"DoubledId", R"({"id": 3, "children": []}, {"id": 3, "children": []})",
             "/children/1/id: an elder sibling has the id 3"},
        Case{"DoubledIdOfItsOwn",
             R"({"id": 4, "children": []}, {"id": 3, "children": []}, {"children": []})",
             "/children/2: an elder sibling has the id 4"},
        Case{"NoIdLeft", R"({"id": 65533, "children": []}, {"children": []})",
             "/children/1: no id is left behind its elder sibling's"},
        Case{"NameAsNumber", R"({"name": 1})",
             "/children/0/name: a number stands where a text is wanted"},
        Case{"UnknownType", R"({"type": "int128"})", "/children/0/type: there is no such type"},
        Case{"EmptyType", R"({"type": ""})", "/children/0/type: there is no such type"},
        Case{"TypeAsNull", R"({"type": null})",
             "/children/0/type: null stands where the name of a type is wanted"},
        Case{"UnknownAccess", R"({"access": "write-only"})",
             "/children/0/access: not \"read-write\", \"read-only\" or \"protected\""},
        Case{"AccessAsBool", R"({"access": true})",
             "/children/0/access: not \"read-write\", \"read-only\" or \"protected\""},
        Case{"SubscribableAsText", R"({"subscribable": "no"})",
             "/children/0/subscribable: a text stands where true or false is wanted"}),
    [](const auto& test) { return std::string(test.param.what); });

TEST(DescriptionParser, NamesTheValueDeepInTheTree) {
  EXPECT_EQ(refused(R"({"children": [{"children": [{"children": []}, {"children": []},
                       {"children": []}, {"type": "uint8", "value": 300}]}]})"),
            "/children/0/children/3/value: 300: out of range for uint8");
}

struct Range {
  const char* type;
  const char* value;
  const char* text;  ///< behind the path; null where the value is taken
};

class ValueRange : public testing::TestWithParam<Range> {};

TEST_P(ValueRange, HoldsPerType) {
  const Range& range = GetParam();
  const std::string whole =
      around(std::string(R"({"type": ")") + range.type + R"(", "value": )" + range.value + "}");
  const std::string expected =
      range.text == nullptr ? "accepted" : std::string("/children/0/value: ") + range.text;
  EXPECT_EQ(refused(whole), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ValueRange,
    testing::Values(
        Range{"bool", "true", nullptr}, Range{"bool", "1", "1: bool wants true or false"},
        Range{"bool", "\"true\"", "\"true\": bool wants true or false"},
        Range{"int8", "127", nullptr}, Range{"int8", "-128", nullptr},
        Range{"int8", "128", "128: out of range for int8"},
        Range{"int8", "-129", "-129: out of range for int8"}, Range{"int16", "32767", nullptr},
        Range{"int16", "-32769", "-32769: out of range for int16"},
        Range{"int32", "-2147483648", nullptr},
        Range{"int32", "2147483648", "2147483648: out of range for int32"},
        Range{"int32", "1.0", "1.0: int32 wants a whole number"},
        Range{"int32", "1e3", "1e3: int32 wants a whole number"},
        Range{"int32", "true", "true: int32 wants a whole number"},
        Range{"int32", "null", "null: int32 wants a whole number"},
        Range{"int64", "9223372036854775807", nullptr},
        Range{"int64", "-9223372036854775808", nullptr},
        Range{"int64", "9223372036854775808", "9223372036854775808: out of range for int64"},
        Range{"int64", "-9223372036854775809", "-9223372036854775809: out of range for int64"},
        Range{"uint8", "255", nullptr}, Range{"uint8", "256", "256: out of range for uint8"},
        Range{"uint8", "-1", "-1: out of range for uint8"}, Range{"uint16", "65535", nullptr},
        Range{"uint16", "65536", "65536: out of range for uint16"},
        Range{"uint32", "4294967295", nullptr},
        Range{"uint32", "4294967296", "4294967296: out of range for uint32"},
        Range{"uint64", "18446744073709551615", nullptr},
        Range{"uint64", "18446744073709551616", "18446744073709551616: out of range for uint64"},
        Range{"float", "0.1", nullptr}, Range{"float", "-7", nullptr},
        Range{"float", "3.4028234663852886e38", nullptr},
        Range{"float", "3.5e38", "3.5e38: out of range for float"},
        Range{"float", "-3.5e38", "-3.5e38: out of range for float"},
        Range{"float", "\"1\"", "\"1\": float wants a number"}, Range{"double", "1e308", nullptr},
        Range{"double", "18446744073709551616", nullptr},
        Range{"double", "false", "false: double wants a number"}, Range{"text", "\"\"", nullptr},
        Range{"text", R"("a\u0000\n")", nullptr}, Range{"text", "5", "5: text wants a text"}));

TEST(DescriptionParser, NamesTheElementThatIsOutOfRange) {
  EXPECT_EQ(refused(around(R"({"elements": [{"value": 1}, {"value": -1}], "type": "uint8"})")),
            "/children/0/elements/1/value: -1: out of range for uint8");
}

TEST(DescriptionParser, AFloatHoldsTheNearestValueOfItsType) {
  const TreeDescription tree = accepted(around(R"({"type": "float", "value": 0.1})"));
  ASSERT_EQ(tree.entries.size(), 1U);
  EXPECT_EQ(std::get<double>(tree.entries[0].values.at(0)), static_cast<double>(0.1F));
}

TEST(DescriptionParser, BoundsNamesTextsAndElements) {
  const auto named = [](std::size_t size) {
    return around(R"({"children": [], "name": ")" + std::string(size, 'n') + "\"}");
  };
  EXPECT_EQ(refused(named(65535)), "accepted");
  EXPECT_EQ(refused(named(65536)), "/children/0/name: longer than 65535 bytes");

  const auto text = [](std::size_t size) {
    return around(R"({"type": "text", "value": ")" + std::string(size, 't') + "\"}");
  };
  EXPECT_EQ(refused(text(16777216)), "accepted");
  EXPECT_EQ(refused(text(16777217)),
            "/children/0/value: a text of 16777217 bytes, more than 16777216");

  const auto elements = [](std::size_t count) {
    std::string entry = R"({"type": "bool", "elements": [{"value":true})";
    for (std::size_t index = 1; index < count; ++index) {
      entry += R"(,{"value":true})";
    }
    return around(entry + "]}");
  };
  EXPECT_EQ(refused(elements(65534)), "accepted");
  EXPECT_EQ(refused(elements(65535)), "/children/0/elements/65534: more than 65534 elements");
}

TEST(DescriptionParser, BoundsTheTextsOfAnArrayTogether) {
  const std::string half(8388608, 't');
  EXPECT_EQ(refused(around(R"({"type": "text", "elements": [{"value": ")" + half +
                           R"("}, {"value": ")" + half + "\"}]}")),
            "/children/0/elements: the texts have more than 16777216 bytes altogether");
}

std::string nested(std::size_t levels) {
  std::string text;
  for (std::size_t level = 0; level <= levels; ++level) {
    text += R"({"children":[)";
  }
  for (std::size_t level = 0; level <= levels; ++level) {
    text += "]}";
  }
  return text;
}

TEST(DescriptionParser, BoundsTheDepth) {
  EXPECT_EQ(refused(nested(4096)), "accepted");
  const std::string error = refused(nested(4097));
  EXPECT_THAT(error, StartsWith("/children/0/children/0/"));
  EXPECT_THAT(error, testing::EndsWith("/children/0: deeper than 4096 levels"));
}

TEST(DescriptionParser, SurvivesTextThatOnlyGoesDeeper) {
  EXPECT_THAT(refused(std::string(1000000, '[')), StartsWith("/: an array stands"));
  EXPECT_THAT(refused(around(R"({"value": )" + std::string(1000000, '['))),
              StartsWith("/children/0/value: an array stands"));
  EXPECT_THAT(refused(nested(1000000)), HasSubstr("deeper than 4096 levels"));
}

TEST(DescriptionParser, RefusesARootThatIsNoTree) {
  EXPECT_EQ(refused("5"), "/: a number stands where an object is wanted");
  EXPECT_EQ(refused("{}"), "/: \"children\" is missing");
  EXPECT_EQ(refused(R"({"id": 1, "children": []})"), "/id: unknown key");
  EXPECT_EQ(refused(R"({"name": null, "children": []})"),
            "/name: null stands where a text is wanted");
}

TEST(DescriptionParser, SaysWhereTheTextIsNoJson) {
  EXPECT_THAT(refused(""), StartsWith("line 1, column 1: "));
  EXPECT_THAT(refused("{\n \"children\": [}\n"), StartsWith("line 2, column 15: syntax error"));
  EXPECT_THAT(refused("{\"children\": []} x"), StartsWith("line 1, column 18: syntax error"));
  EXPECT_THAT(refused(around(R"({"type": "double", "value": 1e999})")),
              HasSubstr("number overflow"));
}

TEST(DescriptionParser, SaysItInOneLineWhateverTheBytes) {
  for (const std::string_view text : {std::string_view("{\"a\n\":1}"), std::string_view("\0{}", 3),
                                      std::string_view("{\"\xff\"}"), std::string_view("\x1b[2J"),
                                      std::string_view("{\"children\"\r:\r\r]")}) {
    const std::string error = refused(text);
    EXPECT_THAT(error, StartsWith("line "));
    for (const char byte : error) {
      EXPECT_GE(static_cast<unsigned char>(byte), 0x20U) << error;
    }
  }
}

TEST(DescriptionParser, RefusesEveryCutOfADescription) {
  for (std::size_t size = 0; size < sample.size(); ++size) {
    EXPECT_NE(refused(sample.substr(0, size)), "accepted") << size;
  }
}

}  // namespace
}  // namespace modelsrvd
