#include "servers/recording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <variant>
#include <vector>

#include "servers/recorded_address.h"

namespace modelsrvd {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

template <typename T>
T recorded(const Result<T>& result) {
  if (const auto* error = std::get_if<Error>(&result)) {
    ADD_FAILURE() << error->text;
    return {};
  }
  return std::get<T>(result);
}

constexpr std::string_view recordedTime = R"("time":"2026-11-22T09:32:55.659952Z",)";

RecordedChange changeOf(const std::string& rest) {
  return recorded(parseRecordedChange("{" + std::string(recordedTime) + rest + "}"));
}

TEST(Recording, HasAHeaderThatDescribesItsParts) {
  const RecordingHeader header = recorded(parseRecordingHeader(
      R"({"format":1,"version":"0.1.0","start":"1970-01-01T00:00:01.000002Z","server":"S","parts":[)"
      R"({"address":"/a","ids":[1,65533],"type":"double","element":"p","access":"protected",)"
      R"("unit":"rpm","subscribable":false,"elements":2,"element_names":["p","i"],"minimum":-1.5,)"
      R"("maximum":7,"choices":[1,2.5],"text":"hello","other":{"a":[{"b":null}]}},{"address":"/b"}]})"));
  EXPECT_EQ(header.server, "S");
  EXPECT_EQ(header.start, 1000002);
  ASSERT_EQ(header.parts.size(), 2U);
  const RecordedPart& part = header.parts[0];
  EXPECT_EQ(part.address, "/a");
  EXPECT_THAT(part.ids, ElementsAre(1, 65533));
  EXPECT_EQ(part.type, EntryType::float64);
  EXPECT_EQ(part.access, ModelSrv::ModelPartStatus_Protected);
  EXPECT_EQ(part.unit, "rpm");
  EXPECT_FALSE(part.subscribable);
  EXPECT_EQ(part.elements, 2U);
  EXPECT_THAT(part.elementNames, ElementsAre("p", "i"));
  EXPECT_EQ(part.minimum, "-1.5");
  EXPECT_EQ(part.maximum, "7");
  EXPECT_THAT(part.choices, ElementsAre("1", "2.5"));
  EXPECT_EQ(part.text, "hello");
  EXPECT_EQ(header.parts[1].type, EntryType::text) << "an older server states no type";
  EXPECT_THAT(header.parts[1].ids, IsEmpty());
}

TEST(Recording, HasValuesAsTheyWere) {
  const struct {
    const char* json;
    std::vector<std::string> texts;
  } cases[] = {
      {R"("value":-9223372036854775808)", {"-9223372036854775808"}},
      {R"("value":18446744073709551615)", {"18446744073709551615"}},
      {R"("value":1.2345678901234568e-300)", {"1.2345678901234568e-300"}},
      {R"("value":-0)", {"-0"}},
      {R"("value":0)", {"0"}},
      {R"("value":"nan")", {"nan"}},
      {R"("value":true)", {"true"}},
      {R"("value":"a\u0000\n\"b")", {std::string("a\0\n\"b", 5)}},
      {R"("value":[1,2.5])", {"1", "2.5"}},
      {R"("value_base64":"/3g=")", {"\xffx"}},
      {R"("value_base64":["","AAEC","/w=="])", {"", std::string("\0\1\2", 3), "\xff"}},
  };
  for (const auto& c : cases) {
    const RecordedChange change = changeOf(R"("address":"/S/a",)" + std::string(c.json));
    EXPECT_EQ(change.texts, c.texts) << c.json;
    EXPECT_EQ(change.isArray, std::string(c.json).find('[') != std::string::npos) << c.json;
    EXPECT_EQ(change.time, 1795339975659952) << c.json;
    EXPECT_FALSE(change.isChange);
  }
  const RecordedChange change = changeOf(
      R"("address":"/S/a","type":"bool","access":"ro","unit":"","value":true,"changes":3)");
  EXPECT_TRUE(change.isChange);
  EXPECT_EQ(change.part.type, EntryType::boolean);
  EXPECT_EQ(change.part.access, ModelSrv::ModelPartStatus_ReadOnly);
}

TEST(Recording, HasLossesOfServers) {
  EXPECT_EQ(changeOf(R"("address":"/S","event":"lost")").event, RecordedChange::Event::lost);
  EXPECT_EQ(changeOf(R"("address":"/S","event":"restored")").event,
            RecordedChange::Event::restored);
}

TEST(Recording, HasChangesOfTheStructure) {
  const RecordedChange added =
      changeOf(R"("address":"/S/#4","ids":[4],"name":"n","event":"restored","structure":"added")");
  EXPECT_EQ(added.event, RecordedChange::Event::added);
  EXPECT_EQ(added.part.type, EntryType::node);
  EXPECT_EQ(added.part.name, "n");
  EXPECT_EQ(added.part.ids, std::vector<ModelSrv::ModelPartId>{4});
  EXPECT_EQ(changeOf(R"("address":"/S/a","event":"restored","structure":"removed")").event,
            RecordedChange::Event::removed);
}

TEST(Recording, IsRefusedWithTheReason) {
  const auto errorOf = [](const auto& result) {
    const auto* error = std::get_if<Error>(&result);
    return error != nullptr ? error->text : "";
  };
  const std::string headerError =
      "expected the header of a recording, with \"format\" 1, \"start\" and \"parts\"";
  const std::string start = R"("start":"2026-11-22T09:32:55.659952Z")";
  const struct {
    std::string line;
    std::string error;
  } headers[] = {
      {"", "no JSON at byte 1"},
      {"{}", headerError},
      {"[1]", "expected an object"},
      {"5", "expected an object"},
      {R"({"format":2,"parts":[],)" + start + "}", headerError},
      {R"({"format":1,"parts":[]})", headerError},
      {R"({"format":1,)" + start + "}", headerError},
      {R"({"format":1,"start":"yesterday","parts":[]})", "expected a time for \"start\""},
      {R"({"format":1,"parts":[{"type":"bool"}]})", "expected \"address\" in each of the parts"},
      {R"({"format":1,"parts":[5]})", "expected an object"},
      {R"({"parts":[{"type":"int7"}]})", "unknown type \"int7\""},
      {R"({"parts":[{"access":"wo"}]})", "expected \"rw\", \"ro\" or \"protected\" for \"access\""},
      {R"({"parts":[{"elements":65535}]})", "expected a number of elements for \"elements\""},
      {R"({"parts":[{"ids":[65534]}]})", "expected ids for \"ids\""},
      {R"({"parts":[{"ids":[[1]]}]})", "expected values for \"ids\""},
  };
  for (const auto& c : headers) {
    EXPECT_EQ(errorOf(parseRecordingHeader(c.line)), c.error) << c.line;
  }
  const std::string address = std::string(recordedTime) + R"("address":"/S/a",)";
  const struct {
    std::string line;
    std::string error;
  } changes[] = {
      {"{\"value\":1}", "expected \"time\" and \"address\""},
      {"{" + address + R"("type":"bool"})", "expected a value or an event"},
      {"{" + address + R"("value":[]})", "expected a value or an event"},
      {"{" + address + R"("value":null})", "expected a value for \"value\""},
      {"{" + address + R"("value":{"a":1}})", "expected a value or an event"},
      {"{" + address + R"("value":[[1]]})", "expected values for \"value\""},
      {"{" + address + R"("value_base64":"abc"})", "expected Base64 for \"value_base64\""},
      {"{" + address + R"("value_base64":"a==="})", "expected Base64 for \"value_base64\""},
      {"{" + address + R"("value_base64":5})", "expected Base64 for \"value_base64\""},
      {"{" + address + R"("event":"gone"})", R"(expected "lost" or "restored" for "event")"},
      {R"({"time":5,"address":"/S/a","value":1})", "expected a time for \"time\""},
      {R"({"address":5})", "expected a string for \"address\""},
      {"{" + address + R"("value":1)", "no JSON at byte 65"},
  };
  for (const auto& c : changes) {
    EXPECT_EQ(errorOf(parseRecordedChange(c.line)), c.error) << c.line;
  }
}

TEST(RecordedAddresses, AreReadAsTheyArePrinted) {
  const auto name = [](std::string text) { return RecordedName{std::move(text), {}}; };
  const RecordedAddress plain = recorded(parseRecordedAddress("/S/a b/c"));
  EXPECT_THAT(plain.names, ElementsAre(name("S"), name("a b"), name("c")));
  EXPECT_FALSE(plain.element);
  const RecordedAddress escaped =
      recorded(parseRecordedAddress(R"(/S/a\/b\*\[\]\\/\#5/x\x0a\xff[p\]])"));
  EXPECT_THAT(escaped.names, ElementsAre(name("S"), name("a/b*[]\\"), name("#5"), name("x\n\xff")));
  EXPECT_EQ(escaped.element, "p]");
  const RecordedAddress byId = recorded(parseRecordedAddress("/S/#12/#0[3]"));
  EXPECT_THAT(byId.names, ElementsAre(name("S"), RecordedName{"", 12}, RecordedName{"", 0}));
  EXPECT_EQ(byId.element, "3");
  EXPECT_THAT(recorded(parseRecordedAddress("/")).names, IsEmpty());
  for (const char* bad : {"/S/a[1", "/S/a[1]b", "/S/#", "/S/#x", "/S/#65534"}) {
    EXPECT_TRUE(std::holds_alternative<Error>(parseRecordedAddress(bad))) << bad;
  }
}

}  // namespace
}  // namespace modelsrvd
