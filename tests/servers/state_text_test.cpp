#include "servers/state_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace modelsrvd {
namespace {

std::string fileOf(const std::string& line) {
  return std::string(stateBegin) + line + std::string(stateEnd);
}

std::vector<StoredPart> parsedState(const std::string& text) {
  const auto result = parseState(text);
  if (const auto* error = std::get_if<Error>(&result)) {
    ADD_FAILURE() << error->text;
    return {};
  }
  return std::get<std::vector<StoredPart>>(result);
}

struct StateValueCase {
  const char* what;
  const char* type;
  std::string text;
  std::string json;
};

class StateValue : public testing::TestWithParam<StateValueCase> {};

TEST_P(StateValue, IsExactAndReadableInTheFile) {
  const auto& c = GetParam();
  const StoredPart part{{{1, "drive"}, {7, "value"}}, c.type, {{"", c.text}}, false};
  const std::string line = stateLine(part);
  EXPECT_EQ(line, std::string(R"({"path":["drive","value"],"ids":[1,7],"type":")") + c.type +
                      "\"," + c.json + '}');
  const auto read = parsedState(fileOf(line));
  ASSERT_EQ(read.size(), 1U);
  EXPECT_EQ(read[0].elements[0].text, c.text);
  EXPECT_EQ(stateLine(read[0]), line);
}

using std::string_literals::operator""s;

INSTANTIATE_TEST_SUITE_P(
    Table, StateValue,
    testing::Values(StateValueCase{"Bool", "bool", "true", R"("value":true)"},
                    StateValueCase{"Smallest", "int64", "-9223372036854775808",
                                   R"("value":-9223372036854775808)"},
                    StateValueCase{"Largest", "uint64", "18446744073709551615",
                                   R"("value":18446744073709551615)"},
                    StateValueCase{"Double", "double", "1.7976931348623157e+308",
                                   R"("value":1.7976931348623157e+308)"},
                    StateValueCase{"WholeDouble", "double", "100000000000000000000",
                                   R"("value":100000000000000000000)"},
                    StateValueCase{"Denormal", "double", "5e-324", R"("value":5e-324)"},
                    StateValueCase{"Float", "float", "0.1", R"("value":0.1)"},
                    StateValueCase{"NegativeZero", "double", "-0", R"("value":"-0")"},
                    StateValueCase{"Infinity", "float", "-inf", R"("value":"-inf")"},
                    StateValueCase{"NotANumber", "double", "nan(7ff8000000000001)",
                                   "\"value\":\"nan(7ff8000000000001)\""},
                    StateValueCase{"Text", "text", "two \"words\"\n\\\t\x7f€",
                                   "\"value\":\"two "
                                   "\\\"words\\\"\\n\\\\\\t\x7f€\""},
                    StateValueCase{"TextThatIsANumber", "text", "42", R"("value":"42")"},
                    StateValueCase{"EmptyText", "text", "", R"("value":"")"},
                    StateValueCase{"ZeroByte", "text", "a\0b"s, R"("value":"a\u0000b")"},
                    StateValueCase{"AnyBytes", "text", "a\xff\x00\xc3"s, R"("hex":"61ff00c3")"},
                    StateValueCase{"Surrogate", "text", "\xed\xa0\x80", R"("hex":"eda080")"}),
    [](const auto& test) { return std::string(test.param.what); });

TEST(StateText, HasTheElementsOfAnArrayWithTheirNames) {
  const StoredPart part{{{3, "gains"}}, "double", {{"p", "1.5"}, {"i", "nan"}}, true};
  const std::string line = R"({"path":["gains"],"ids":[3],"type":"double",)"
                           R"("elements":[{"name":"p","value":1.5},{"name":"i","value":"nan"}]})";
  EXPECT_EQ(stateLine(part), line);
  const auto read = parsedState(fileOf(line));
  ASSERT_EQ(read.size(), 1U);
  EXPECT_TRUE(read[0].array);
  EXPECT_EQ(stateLine(read[0]), line);
}

TEST(StateText, HasNoPartsInTheBeginning) {
  EXPECT_TRUE(parsedState(fileOf("")).empty());
}

TEST(StateText, NamesAPartByItsPathInOneLine) {
  EXPECT_EQ(pathOf({{{1, "a\n"}, {2, ""}, {3, "c"}}, "bool", {}, false}), "/a\\x0a//c");
}

TEST(StateText, IsRefusedIfItIsDamaged) {
  const std::string part = R"({"path":["a"],"ids":[1],"type":"text",)";
  const struct {
    std::string text;
    const char* error;
  } cases[] = {
      {"", "no JSON at byte 1"},
      {"garbage", "no JSON at byte 1"},
      {"[1]", "unexpected array"},
      {"{}", "missing \"state\""},
      {R"({"state": 2, "parts": []})", "expected version 1, got 2"},
      {R"({"state": 1, "parts": 5})", "unexpected value after \"parts\""},
      {fileOf(R"({"path":["a"],"ids":[1],"type":"text"})"),
       "/parts/0: expected a value or elements"},
      {fileOf(part + R"("elements":[]})"), "/parts/0: expected a value or elements"},
      {fileOf(part + R"("elements":[{"name":"x"}]})"),
       "/parts/0: unexpected element without a value"},
      {fileOf(part + R"("value":1,"hex":"00"})"), "/parts/0: unexpected value after \"hex\""},
      {fileOf(part + R"("value":1,"elements":[{"value":1}]})"),
       "/parts/0: unexpected array after \"elements\""},
      {fileOf(part + R"("value":null})"), "/parts/0: unexpected null after \"value\""},
      {fileOf(part + R"("hex":"0g"})"),
       "/parts/0: unexpected text that is not hexadecimal after \"hex\""},
      {fileOf(part + R"("hex":"000"})"),
       "/parts/0: unexpected text that is not hexadecimal after \"hex\""},
      {fileOf(part + R"("other\n":"x"})"), "/parts/0: unexpected value after \"other\\x0a\""},
      {fileOf(R"({"path":["a"],"ids":[],"type":"text","value":"x"})"),
       "/parts/0: expected a path and as many ids"},
      {fileOf(R"({"path":["a"],"ids":[65534],"type":"text","value":"x"})"),
       "/parts/0: unexpected id"},
      {fileOf("[[[[[["), "unexpected array"}};
  for (const auto& c : cases) {
    const auto result = parseState(c.text);
    const auto* error = std::get_if<Error>(&result);
    ASSERT_NE(error, nullptr) << c.text;
    EXPECT_EQ(error->text, c.error) << c.text;
  }
}

TEST(StateText, IsRefusedIfAnyEndIsMissing) {
  const std::string whole =
      fileOf(stateLine({{{3, "gains"}}, "text", {{"p", "a\xff"}, {"i", "b"}}, true}));
  for (std::size_t size = 0; size + 1 < whole.size(); ++size) {
    const auto result = parseState(whole.substr(0, size));
    EXPECT_NE(std::get_if<Error>(&result), nullptr) << size;
  }
}

}  // namespace
}  // namespace modelsrvd
