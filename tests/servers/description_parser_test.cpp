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

TreeDescription parsed(std::string_view text) {
  auto result = parseTreeDescription(text);
  if (const auto* error = std::get_if<Error>(&result)) {
    ADD_FAILURE() << error->text;
    return {};
  }
  return std::get<TreeDescription>(std::move(result));
}

std::string errorOf(std::string_view text) {
  const auto result = parseTreeDescription(text);
  const auto* error = std::get_if<Error>(&result);
  return error == nullptr ? "parsed" : error->text;
}

/// A description whose root has the one child `entry`.
std::string rootWith(std::string_view entry) {
  return R"({"name": "Model_t", "children": [)" + std::string(entry) + "]}";
}

constexpr std::string_view sampleText = R"({"name": "Model_device", "children": [
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
  const TreeDescription tree = parsed(sampleText);
  EXPECT_EQ(tree.name, "Model_device");
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
  const TreeDescription tree = parsed(sampleText);
  ASSERT_EQ(tree.entries.size(), 10U);
  EXPECT_TRUE(tree.entries[3].array);
  EXPECT_THAT(tree.entries[3].elementNames, ElementsAre("p", "i"));
  EXPECT_THAT(tree.entries[3].values, ElementsAre(EntryValue(1.5), EntryValue(0.25)));
  EXPECT_THAT(tree.entries[4].elementNames, IsEmpty());
  EXPECT_THAT(tree.entries[4].values,
              ElementsAre(EntryValue(std::uint64_t{1}), EntryValue(std::uint64_t{2})));
}

TEST(DescriptionParser, NamesEveryElementIfOneIsNamed) {
  const TreeDescription tree = parsed(
      rootWith(R"({"type": "bool", "elements": [{"value": true}, {"value": true, "name": "b"}]})"));
  ASSERT_EQ(tree.entries.size(), 1U);
  EXPECT_THAT(tree.entries[0].elementNames, ElementsAre("", "b"));
}

TEST(DescriptionParser, KeepsAccessAndSubscribability) {
  const TreeDescription tree = parsed(sampleText);
  ASSERT_EQ(tree.entries.size(), 10U);
  EXPECT_EQ(tree.entries[1].access, ModelSrv::ModelPartStatus_ReadWrite);
  EXPECT_TRUE(tree.entries[1].subscribable);
  EXPECT_EQ(tree.entries[5].access, ModelSrv::ModelPartStatus_ReadOnly);
  EXPECT_EQ(tree.entries[6].access, ModelSrv::ModelPartStatus_Protected);
  EXPECT_FALSE(tree.entries[7].subscribable);
  EXPECT_EQ(
      parsed(rootWith(R"({"type":"bool","value":true,"access":"read-write"})")).entries[0].access,
      ModelSrv::ModelPartStatus_ReadWrite);
}

TEST(DescriptionParser, AcceptsTheKeysOfAnEntryInAnyOrder) {
  const TreeDescription tree =
      parsed(R"({"children": [{"value": 5, "type": "uint8", "name": "a", "id": 9}],
                   "name": "Model_t"})");
  EXPECT_EQ(tree.name, "Model_t");
  ASSERT_EQ(tree.entries.size(), 1U);
  EXPECT_EQ(tree.entries[0].id, 9U);
  EXPECT_EQ(tree.entries[0].name, "a");
}

TEST(DescriptionParser, NumbersAChildWithoutAnIdAfterItsPreviousSibling) {
  const TreeDescription tree = parsed(
      rootWith(R"({"children": []}, {"id": 7, "children": []}, {"children": [{"children": []}]})"));
  ASSERT_EQ(tree.entries.size(), 4U);
  EXPECT_EQ(tree.entries[0].id, 1U);
  EXPECT_EQ(tree.entries[1].id, 7U);
  EXPECT_EQ(tree.entries[2].id, 8U);
  EXPECT_EQ(tree.entries[3].id, 1U);
}

TEST(DescriptionParser, AcceptsTheSmallestAndTheLargestId) {
  const TreeDescription tree =
      parsed(rootWith(R"({"id": 65533, "children": []}, {"id": 0, "children": []})"));
  ASSERT_EQ(tree.entries.size(), 2U);
  EXPECT_EQ(tree.entries[0].id, 65533U);
  EXPECT_EQ(tree.entries[1].id, 0U);
}

struct InvalidEntryCase {
  const char* what;
  const char* entry;
  const char* text;
};

class InvalidEntry : public testing::TestWithParam<InvalidEntryCase> {};

TEST_P(InvalidEntry, IsReportedWithItsPath) {
  EXPECT_EQ(errorOf(rootWith(GetParam().entry)), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Structure, InvalidEntry,
    testing::Values(
        InvalidEntryCase{"NotAnObject", "5", "/children/0: expected an object, got 5"},
        InvalidEntryCase{"AnArray", "[]", "/children/0: expected an object, got an array"},
        InvalidEntryCase{"UnknownKey", R"({"colour": 1})", "/children/0/colour: unknown key"},
        InvalidEntryCase{"KeyWithControlBytes", R"({"a\nb": 1})",
                         "/children/0/a\\x0ab: unknown key"},
        InvalidEntryCase{"DuplicateKey", R"({"id": 1, "id": 2})", "/children/0/id: duplicate key"},
        InvalidEntryCase{
            "NoKeys", "{}",
            R"(/children/0: missing "children", or "type" with "value", "elements", "file" or )"
            R"("simulate")"},
        InvalidEntryCase{"TypeWithoutValue", R"({"type": "bool"})",
                         R"(/children/0: missing "value", "elements", "file" or "simulate")"},
        InvalidEntryCase{"ValueWithoutType", R"({"value": 1})", R"(/children/0: missing "type")"},
        InvalidEntryCase{"ValueAndElements",
                         R"({"type": "int8", "value": 1, "elements": [{"value": 1}]})",
                         R"(/children/0/elements: not allowed together with "value")"},
        InvalidEntryCase{"ChildrenAndType", R"({"children": [], "type": "int8"})",
                         R"(/children/0/type: not allowed together with "children")"},
        InvalidEntryCase{"ChildrenAndAccess", R"({"access": "read-only", "children": []})",
                         R"(/children/0/access: not allowed together with "children")"},
        InvalidEntryCase{"ChildrenNoArray", R"({"children": {}})",
                         "/children/0/children: expected an array of entries, got an object"},
        InvalidEntryCase{"ElementsNoArray", R"({"type": "int8", "elements": 3})",
                         "/children/0/elements: expected an array of elements, got 3"},
        InvalidEntryCase{"NoElements", R"({"type": "int8", "elements": []})",
                         "/children/0/elements: expected at least one element, got none"},
        InvalidEntryCase{"ElementNoObject", R"({"type": "int8", "elements": [1]})",
                         "/children/0/elements/0: expected an object, got 1"},
        InvalidEntryCase{"ElementWithoutValue",
                         R"({"type": "int8", "elements": [{"value": 1}, {}]})",
                         R"(/children/0/elements/1: missing "value")"},
        InvalidEntryCase{"ElementWithType", R"({"elements": [{"type": "int8"}]})",
                         "/children/0/elements/0/type: unknown key"},
        InvalidEntryCase{"ArrayAsValue", R"({"type": "int8", "value": [1]})",
                         "/children/0/value: expected a single value, got an array"},
        InvalidEntryCase{"ObjectAsValue", R"({"type": "int8", "value": {"a": 1}})",
                         "/children/0/value: expected a single value, got an object"}),
    [](const auto& test) { return std::string(test.param.what); });

INSTANTIATE_TEST_SUITE_P(
    Keys, InvalidEntry,
    testing::Values(
        InvalidEntryCase{"IdTooLarge", R"({"id": 65534})",
                         "/children/0/id: expected an integer from 0 to 65533, got 65534"},
        InvalidEntryCase{"IdNegative", R"({"id": -1})",
                         "/children/0/id: expected an integer from 0 to 65533, got -1"},
        InvalidEntryCase{"IdWithFraction", R"({"id": 1.0})",
                         "/children/0/id: expected an integer from 0 to 65533, got 1.0"},
        InvalidEntryCase{"IdAsText", R"({"id": "1"})",
                         "/children/0/id: expected an integer from 0 to 65533, got \"1\""},
        InvalidEntryCase{"DuplicateId", R"({"id": 3, "children": []}, {"id": 3, "children": []})",
                         "/children/1/id: duplicate id 3"},
        InvalidEntryCase{
            "DuplicateDefaultId",
            R"({"id": 4, "children": []}, {"id": 3, "children": []}, {"children": []})",
            "/children/2: duplicate id 4"},
        InvalidEntryCase{"NoIdLeft", R"({"id": 65533, "children": []}, {"children": []})",
                         "/children/1: no id left after the previous sibling's 65533"},
        InvalidEntryCase{"NameAsNumber", R"({"name": 1})",
                         "/children/0/name: expected a string, got 1"},
        InvalidEntryCase{"UnknownType", R"({"type": "int128"})",
                         "/children/0/type: unknown type \"int128\""},
        InvalidEntryCase{"EmptyType", R"({"type": ""})", "/children/0/type: unknown type \"\""},
        InvalidEntryCase{"TypeAsNull", R"({"type": null})",
                         "/children/0/type: expected the name of a type, got null"},
        InvalidEntryCase{
            "UnknownAccess", R"({"access": "write-only"})",
            "/children/0/access: expected \"read-write\", \"read-only\" or \"protected\", "
            "got \"write-only\""},
        InvalidEntryCase{
            "AccessAsBool", R"({"access": true})",
            "/children/0/access: expected \"read-write\", \"read-only\" or \"protected\", "
            "got true"},
        InvalidEntryCase{"SubscribableAsText", R"({"subscribable": "no"})",
                         "/children/0/subscribable: expected true or false, got \"no\""}),
    [](const auto& test) { return std::string(test.param.what); });

TEST(DescriptionParser, ReportsThePathOfANestedValue) {
  EXPECT_EQ(errorOf(R"({"children": [{"children": [{"children": []}, {"children": []},
                       {"children": []}, {"type": "uint8", "value": 300}]}]})"),
            "/children/0/children/3/value: 300 is out of range for uint8");
}

struct RangeCase {
  const char* type;
  const char* value;
  const char* text;  ///< after the path; null if the value is valid
};

class ValueRange : public testing::TestWithParam<RangeCase> {};

TEST_P(ValueRange, IsCheckedPerType) {
  const RangeCase& range = GetParam();
  const std::string whole =
      rootWith(std::string(R"({"type": ")") + range.type + R"(", "value": )" + range.value + "}");
  const std::string expected =
      range.text == nullptr ? "parsed" : std::string("/children/0/value: ") + range.text;
  EXPECT_EQ(errorOf(whole), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ValueRange,
    testing::Values(
        RangeCase{"bool", "true", nullptr},
        RangeCase{"bool", "1", "expected true or false for bool, got 1"},
        RangeCase{"bool", "\"true\"", "expected true or false for bool, got \"true\""},
        RangeCase{"int8", "127", nullptr}, RangeCase{"int8", "-128", nullptr},
        RangeCase{"int8", "128", "128 is out of range for int8"},
        RangeCase{"int8", "-129", "-129 is out of range for int8"},
        RangeCase{"int16", "32767", nullptr},
        RangeCase{"int16", "-32769", "-32769 is out of range for int16"},
        RangeCase{"int32", "-2147483648", nullptr},
        RangeCase{"int32", "2147483648", "2147483648 is out of range for int32"},
        RangeCase{"int32", "1.0", "expected an integer for int32, got 1.0"},
        RangeCase{"int32", "1e3", "expected an integer for int32, got 1e3"},
        RangeCase{"int32", "true", "expected an integer for int32, got true"},
        RangeCase{"int32", "null", "expected an integer for int32, got null"},
        RangeCase{"int64", "9223372036854775807", nullptr},
        RangeCase{"int64", "-9223372036854775808", nullptr},
        RangeCase{"int64", "9223372036854775808", "9223372036854775808 is out of range for int64"},
        RangeCase{"int64", "-9223372036854775809",
                  "-9223372036854775809 is out of range for int64"},
        RangeCase{"uint8", "255", nullptr},
        RangeCase{"uint8", "256", "256 is out of range for uint8"},
        RangeCase{"uint8", "-1", "-1 is out of range for uint8"},
        RangeCase{"uint16", "65535", nullptr},
        RangeCase{"uint16", "65536", "65536 is out of range for uint16"},
        RangeCase{"uint32", "4294967295", nullptr},
        RangeCase{"uint32", "4294967296", "4294967296 is out of range for uint32"},
        RangeCase{"uint64", "18446744073709551615", nullptr},
        RangeCase{"uint64", "18446744073709551616",
                  "18446744073709551616 is out of range for uint64"},
        RangeCase{"float", "0.1", nullptr}, RangeCase{"float", "-7", nullptr},
        RangeCase{"float", "3.4028234663852886e38", nullptr},
        RangeCase{"float", "3.5e38", "3.5e38 is out of range for float"},
        RangeCase{"float", "-3.5e38", "-3.5e38 is out of range for float"},
        RangeCase{"float", "\"1\"", "expected a number for float, got \"1\""},
        RangeCase{"double", "1e308", nullptr}, RangeCase{"double", "18446744073709551616", nullptr},
        RangeCase{"double", "false", "expected a number for double, got false"},
        RangeCase{"text", "\"\"", nullptr}, RangeCase{"text", R"("a\u0000\n")", nullptr},
        RangeCase{"text", "5", "expected a string for text, got 5"}));

TEST(DescriptionParser, ReportsThePathOfAnElement) {
  EXPECT_EQ(errorOf(rootWith(R"({"elements": [{"value": 1}, {"value": -1}], "type": "uint8"})")),
            "/children/0/elements/1/value: -1 is out of range for uint8");
}

TEST(DescriptionParser, RoundsAFloatToItsType) {
  const TreeDescription tree = parsed(rootWith(R"({"type": "float", "value": 0.1})"));
  ASSERT_EQ(tree.entries.size(), 1U);
  EXPECT_EQ(std::get<double>(tree.entries[0].values.at(0)), static_cast<double>(0.1F));
}

TEST(DescriptionParser, LimitsNamesTextsAndElements) {
  const auto named = [](std::size_t size) {
    return rootWith(R"({"children": [], "name": ")" + std::string(size, 'n') + "\"}");
  };
  EXPECT_EQ(errorOf(named(65535)), "parsed");
  EXPECT_EQ(errorOf(named(65536)), "/children/0/name: longer than 65535 bytes");

  const auto text = [](std::size_t size) {
    return rootWith(R"({"type": "text", "value": ")" + std::string(size, 't') + "\"}");
  };
  EXPECT_EQ(errorOf(text(16777216)), "parsed");
  EXPECT_EQ(errorOf(text(16777217)), "/children/0/value: longer than 16777216 bytes");

  const auto elements = [](std::size_t count) {
    std::string entry = R"({"type": "bool", "elements": [{"value":true})";
    for (std::size_t index = 1; index < count; ++index) {
      entry += R"(,{"value":true})";
    }
    return rootWith(entry + "]}");
  };
  EXPECT_EQ(errorOf(elements(65534)), "parsed");
  EXPECT_EQ(errorOf(elements(65535)), "/children/0/elements/65534: more than 65534 elements");
}

TEST(DescriptionParser, LimitsTheTotalTextOfAnArray) {
  const std::string half(8388608, 't');
  EXPECT_EQ(errorOf(rootWith(R"({"type": "text", "elements": [{"value": ")" + half +
                             R"("}, {"value": ")" + half + "\"}]}")),
            "/children/0/elements: longer than 16777216 bytes in total");
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

TEST(DescriptionParser, LimitsTheDepth) {
  EXPECT_EQ(errorOf(nested(4096)), "parsed");
  const std::string error = errorOf(nested(4097));
  EXPECT_THAT(error, StartsWith("/children/0/children/0/"));
  EXPECT_THAT(error, testing::EndsWith("/children/0: deeper than 4096 levels"));
}

TEST(DescriptionParser, LimitsTheDepthOfUnclosedText) {
  EXPECT_THAT(errorOf(std::string(1000000, '[')), StartsWith("/: expected an object"));
  EXPECT_THAT(errorOf(rootWith(R"({"value": )" + std::string(1000000, '['))),
              StartsWith("/children/0/value: expected a single value"));
  EXPECT_THAT(errorOf(nested(1000000)), HasSubstr("deeper than 4096 levels"));
}

TEST(DescriptionParser, RejectsARootThatIsNotATree) {
  EXPECT_EQ(errorOf("5"), "/: expected an object, got 5");
  EXPECT_EQ(errorOf("{}"), "/: missing \"children\"");
  EXPECT_EQ(errorOf(R"({"id": 1, "children": []})"), "/id: unknown key");
  EXPECT_EQ(errorOf(R"({"name": null, "children": []})"), "/name: expected a string, got null");
}

TEST(DescriptionParser, ReportsThePositionOfASyntaxError) {
  EXPECT_THAT(errorOf(""), StartsWith("line 1, column 1: "));
  EXPECT_THAT(errorOf("{\n \"children\": [}\n"), StartsWith("line 2, column 15: syntax error"));
  EXPECT_THAT(errorOf("{\"children\": []} x"), StartsWith("line 1, column 18: syntax error"));
  // Where the parser takes a zero byte for the end.
  EXPECT_EQ(errorOf(std::string_view("{\"children\": []}\n\0{", 19)),
            "line 2, column 1: expected the end, got a zero byte");
  EXPECT_THAT(errorOf(rootWith(R"({"type": "double", "value": 1e999})")),
              HasSubstr("number overflow"));
}

TEST(DescriptionParser, ReportsALongTokenShortly) {
  EXPECT_EQ(errorOf(rootWith(R"({"id": )" + std::string(100'000, '9') + "}")),
            "line 1, column 100040: number overflow parsing '…" + std::string(40, '9') + "'");
  // A string without end.
  const std::string error = errorOf("{\"name\": \"" + std::string(100'000, 'x'));
  EXPECT_THAT(error, HasSubstr("last read: '…xxx"));
  EXPECT_LT(error.size(), 200U);
}

TEST(DescriptionParser, ReportsAnyErrorInOneLine) {
  for (const std::string_view text : {std::string_view("{\"a\n\":1}"), std::string_view("\0{}", 3),
                                      std::string_view("{\"\xff\"}"), std::string_view("\x1b[2J"),
                                      std::string_view("{\"children\"\r:\r\r]")}) {
    const std::string error = errorOf(text);
    EXPECT_THAT(error, StartsWith("line "));
    for (const char byte : error) {
      EXPECT_GE(static_cast<unsigned char>(byte), 0x20U) << error;
    }
  }
}

TEST(DescriptionParser, RejectsEveryTruncatedDescription) {
  for (std::size_t size = 0; size < sampleText.size(); ++size) {
    EXPECT_NE(errorOf(sampleText.substr(0, size)), "parsed") << size;
  }
}

}  // namespace
}  // namespace modelsrvd
