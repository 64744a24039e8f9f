#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "modelsrv/part_description.h"
#include "modelsrv/source/part_access.h"
#include "tests/platform/modelsrv/served_tree.h"

// What a server states about a part, and why it refuses a store.

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;

struct StoreResult {
  ModelRes result = ModelRes_Success;
  std::string reason;
  bool operator==(const StoreResult&) const = default;
};

void PrintTo(const StoreResult& store, std::ostream* out) {
  *out << store.result << " \"" << store.reason << '"';
}

StoreResult clientStore(ModelPart& part, std::string_view text,
                        ModelPartIndex index = ModelPartIndex_All) {
  StoreResult store;
  store.result = internal::PartAccess::storeFromClient(part, text, true, index, store.reason);
  return store;
}

TEST(Attributes, LimitWhatClientsStore) {
  ValuePart<std::int32_t> setpoint(1, "setpoint", 99);
  ASSERT_EQ(setpoint.setAttributes({"°C", "5", "30", "wanted temperature", {}}), ModelRes_Success);
  const StoreResult tooLarge{ModelRes_OutOfRange, "setpoint 31 is not within 5 to 30"};
  EXPECT_EQ(clientStore(setpoint, "31"), tooLarge);
  EXPECT_EQ(clientStore(setpoint, "4").result, ModelRes_OutOfRange);
  EXPECT_EQ(setpoint.value(), 99);
  EXPECT_EQ(clientStore(setpoint, "x"), (StoreResult{ModelRes_BadText, ""}));
  EXPECT_EQ(clientStore(setpoint, "5"), StoreResult{});
  EXPECT_EQ(clientStore(setpoint, "30"), StoreResult{});
  EXPECT_EQ(setpoint.setValue(1000), ModelRes_Success) << "the server itself is not limited";
  ASSERT_EQ(setpoint.setAttributes({}), ModelRes_Success);
  EXPECT_EQ(clientStore(setpoint, "31"), StoreResult{});
}

TEST(Attributes, MayHaveOneLimitOnly) {
  ValuePart<std::uint64_t> count(1, "");
  ASSERT_EQ(count.setAttributes({"", "", "18446744073709551614", "", {}}), ModelRes_Success);
  const StoreResult tooLarge{ModelRes_OutOfRange,
                             "18446744073709551615 is not at most 18446744073709551614"};
  EXPECT_EQ(clientStore(count, "18446744073709551615"), tooLarge);
  ASSERT_EQ(count.setAttributes({"", "1", "", "", {}}), ModelRes_Success);
  EXPECT_EQ(clientStore(count, "0"), (StoreResult{ModelRes_OutOfRange, "0 is not at least 1"}));
}

TEST(Attributes, RejectNotANumberWithinLimits) {
  ValuePart<double> part(1, "t");
  ASSERT_EQ(part.setAttributes({"", "-inf", "inf", "", {}}), ModelRes_Success);
  EXPECT_EQ(clientStore(part, "nan"),
            (StoreResult{ModelRes_OutOfRange, "t nan is not within -inf to inf"}));
  EXPECT_EQ(clientStore(part, "inf"), StoreResult{});
}

TEST(Attributes, RestrictATextToItsChoices) {
  ValuePart<std::string> mode(1, "mode", "off");
  ASSERT_EQ(mode.setAttributes({"", "", "", "", {"off", "auto", "on"}}), ModelRes_Success);
  EXPECT_EQ(clientStore(mode, "ON"),
            (StoreResult{ModelRes_Vetoed, "mode \"ON\" is not one of off, auto, on"}));
  EXPECT_EQ(clientStore(mode, "2\non"), StoreResult{}) << "the counted form";
  EXPECT_EQ(mode.value(), "on");
  ValuePart<float> step(2, "step");
  ASSERT_EQ(step.setAttributes({"", "", "", "", {"2.5", "0.1", "1"}}), ModelRes_Success);
  EXPECT_EQ(clientStore(step, "0.10"), StoreResult{});
  EXPECT_EQ(clientStore(step, "0.2").result, ModelRes_Vetoed);
  EXPECT_EQ(clientStore(step, "nan"),
            (StoreResult{ModelRes_Vetoed, "step nan is not one of 2.5, 0.1, 1"}));
  EXPECT_EQ(step.setAttributes({"", "", "", "", {"2", "nan", "1"}}), ModelRes_BadArgument);
}

TEST(Attributes, ApplyToEachElementBeforeAnyChanges) {
  ArrayPart<std::int8_t> array(1, "levels", {1, 2, 3});
  ASSERT_EQ(array.setAttributes({"", "0", "9", "", {}}), ModelRes_Success);
  EXPECT_EQ(clientStore(array, "4\n5\n10"),
            (StoreResult{ModelRes_OutOfRange, "levels[2] 10 is not within 0 to 9"}));
  EXPECT_EQ(array.values(), (std::vector<std::int8_t>{1, 2, 3}));
  EXPECT_EQ(clientStore(array, "-1", 0).reason, "levels[0] -1 is not within 0 to 9");
  EXPECT_EQ(clientStore(array, "4\n5\n9"), StoreResult{});
}

TEST(Attributes, MayBeReplacedByTheStoreCheck) {
  ArrayPart<std::int32_t> array(1, "", {1, 2});
  ASSERT_EQ(array.setAttributes({"", "0", "9", "", {"1", "2", "3"}}), ModelRes_Success);
  array.setStoreCheck(
      [&array](const std::int32_t&, ModelPartIndex) { return array.setAttributes({}); });
  EXPECT_EQ(clientStore(array, "2\n3"), StoreResult{});
  EXPECT_EQ(array.attributes(), PartAttributes{});
}

TEST(Attributes, AreRejectedIfTheyDoNotFitThePart) {
  ValuePart<std::int8_t> number(1, "");
  ValuePart<std::string> text(2, "");
  ValuePart<bool> flag(3, "");
  ModelNode node(4);
  const PartAttributes kept{"V", "", "", "", {}};
  const std::string longText(ModelAttributeText_Max + 1, 'x');
  const struct {
    ModelPart& part;
    PartAttributes attributes;
  } cases[] = {{number, {"", "128", "", "", {}}},
               {number, {"", "5", "4", "", {}}},
               {number, {"", "", "x", "", {}}},
               {number, {"", "", "", "", {"1", "300"}}},
               {number, {std::string(ModelUnit_Max + 1, 'u'), "", "", "", {}}},
               {number, {"", "", "", longText, {}}},
               {number, {"", "", "", "two\nlines", {}}},
               {number, {"\xff", "", "", "", {}}},
               {text, {"", "1", "", "", {}}},
               {text, {"", "", "", "", {longText}}},
               {text, {"", "", "", "", std::vector<std::string>(ModelChoices_Max + 1, "c")}},
               {flag, {"", "", "1", "", {}}},
               {node, {"", "1", "", "", {}}},
               {node, {"", "", "", "", {"a"}}}};
  for (const auto& c : cases) {
    ASSERT_EQ(c.part.setAttributes(kept), ModelRes_Success);
    EXPECT_EQ(c.part.setAttributes(c.attributes), ModelRes_BadArgument)
        << c.attributes.minimum << ' ' << c.attributes.maximum;
    EXPECT_EQ(c.part.attributes(), kept);
  }
}

TEST(StoreAsClient, IsCheckedAsTheStoreOfAClient) {
  ValuePart<std::int32_t> speed(1, "speed", 42);
  ValuePart<std::int32_t> serial(2, "serial", 1, ModelPartStatus_ReadOnly);
  ValuePart<std::int32_t> offset(3, "offset", 1, ModelPartStatus_Protected);
  ASSERT_EQ(speed.setAttributes({"", "0", "50", "", {}}), ModelRes_Success);
  std::string reason = "before";
  EXPECT_EQ(speed.storeAsClient("7", false, all, reason), ModelRes_Success);
  EXPECT_EQ(reason, "before");
  EXPECT_EQ(speed.value(), 7);
  EXPECT_EQ(speed.storeAsClient("99", false, all, reason), ModelRes_OutOfRange);
  EXPECT_EQ(reason, "speed 99 is not within 0 to 50");
  EXPECT_EQ(speed.value(), 7);
  EXPECT_EQ(serial.storeAsClient("7", true, all, reason), ModelRes_ReadOnly);
  EXPECT_EQ(reason, describe(ModelRes_ReadOnly));
  EXPECT_EQ(offset.storeAsClient("7", false, all, reason), ModelRes_Protected);
  EXPECT_EQ(offset.storeAsClient("7", true, all, reason), ModelRes_Success);
  Client client;
  EXPECT_NE(client.part.at(speedChain).storeAsClient("7", false, all, reason), ModelRes_Success);
}

TEST(StoreCheckReason, ReachesTheClientAsOneLine) {
  const std::string port = test_support::uniquePortName();
  std::string reason = "setpoint 99 is not within 5 to 30";
  Server server(port, [&](Server& prepared) {
    prepared.speed.setStoreCheckWithReason(
        [&](const std::int32_t& value, ModelPartIndex, std::string& why) {
          why = reason;
          return value == 1 ? ModelRes_Success : ModelRes_Vetoed;
        });
  });
  Client client;
  ASSERT_EQ(client.connect(port), ModelRes_Success);
  std::string why = "before";
  EXPECT_EQ(client.part.at(speedChain).store("1", false, all, why), ModelRes_Success);
  EXPECT_EQ(why, "before");
  EXPECT_EQ(client.part.at(speedChain).store("99", false, all, why), ModelRes_Vetoed);
  EXPECT_EQ(why, reason);
  reason = "bell \a" + std::string(600, 'x');
  EXPECT_EQ(client.part.at(speedChain).store("99", false, all, why), ModelRes_Vetoed);
  EXPECT_EQ(why, "bell ?" + std::string(ModelReason_Max - 6, 'x'));
  EXPECT_EQ(client.load(speedChain, "99"), ModelRes_Vetoed) << "without a reason";
  EXPECT_EQ(client.text(speedChain), "1");
}

TEST(StoreCheckReason, IsTheTextOfTheResultIfTheServerGivesNone) {
  const std::string port = test_support::uniquePortName();
  Server server(port);
  Client client;
  std::string why;
  EXPECT_EQ(client.part.at(speedChain).store("1", false, all, why), ModelRes_NoValue);
  EXPECT_EQ(why, describe(ModelRes_NoValue)) << "no connection was ever made";
  ASSERT_EQ(client.connect(port), ModelRes_Success);
  const struct {
    Chain chain;
    std::string text;
    ModelRes result;
    ModelPartIndex index = all;
  } cases[] = {
      {{1, 5}, "x", ModelRes_ReadOnly},          {{1, 6}, "1", ModelRes_Protected},
      {{1, 99}, "1", ModelRes_NoSuchPart},       {{1}, "1", ModelRes_NoValue},
      {speedChain, "x", ModelRes_BadText},       {speedChain, "3000000000", ModelRes_OutOfRange},
      {gainsChain, "1", ModelRes_NoSuchIndex, 2}};
  for (const auto& c : cases) {
    why.clear();
    EXPECT_EQ(client.part.at(c.chain).store(c.text, false, c.index, why), c.result);
    EXPECT_EQ(why, describe(c.result));
  }
}

TEST(Describe, ReturnsWhatAPartOfTheServerIs) {
  const std::string port = test_support::uniquePortName();
  const PartAttributes volts{"V", "0", "5", "supply", {}};
  Server server(port, [&](Server& prepared) {
    EXPECT_EQ(prepared.gains.setAttributes(volts), ModelRes_Success);
    EXPECT_EQ(prepared.drive.setAttributes({"", "", "", "the drive", {}}), ModelRes_Success);
  });
  Client client;
  ASSERT_EQ(client.connect(port), ModelRes_Success);
  const struct {
    Chain chain;
    PartDescription description;
  } cases[] = {
      {{}, {"node", ModelPartStatus_Void, true, 0, {}, {}}},
      {driveChain, {"node", ModelPartStatus_Void, true, 0, {}, {"", "", "", "the drive", {}}}},
      {speedChain, {"int32", ModelPartStatus_ReadWrite, true, 0, {}, {}}},
      {labelChain, {"text", ModelPartStatus_ReadWrite, true, 0, {}, {}}},
      {gainsChain, {"double", ModelPartStatus_ReadWrite, true, 2, {"p", "i"}, volts}},
      {{1, 5}, {"text", ModelPartStatus_ReadOnly, true, 0, {}, {}}},
      {{1, 6}, {"float", ModelPartStatus_Protected, true, 0, {}, {}}},
      {secretChain, {"bool", ModelPartStatus_ReadWrite, false, 0, {}, {}}},
      {{1, 12}, {"uint16", ModelPartStatus_ReadWrite, true, 0, {}, {}}}};
  for (const auto& c : cases) {
    PartDescription description;
    ModelPart& part =
        c.chain.empty() ? static_cast<ModelPart&>(client.root) : client.part.at(c.chain);
    EXPECT_EQ(part.describe(description), ModelRes_Success);
    EXPECT_EQ(description, c.description) << description.type;
  }
  PartDescription kept{"kept", 0, true, 0, {}, {}};
  EXPECT_EQ(client.part.at({1, 99}).describe(kept), ModelRes_NoSuchPart);
  EXPECT_EQ(kept.type, "kept");
  EXPECT_EQ(server.gains.describe(kept), ModelRes_Success) << "the server's own part";
  EXPECT_EQ(kept, cases[4].description);
}

}  // namespace
