#include "servers/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace modelsrvd {
namespace {

using Words = std::vector<std::string_view>;

Options accepted(const Words& words) {
  const auto result = parseOptions(words);
  if (const auto* error = std::get_if<Error>(&result)) {
    ADD_FAILURE() << error->text;
    return {};
  }
  return std::get<Options>(result);
}

TEST(Options, WithoutWordsShowThisMachineEverySecond) {
  const Options options = accepted({});
  EXPECT_FALSE(options.help);
  EXPECT_FALSE(options.version);
  EXPECT_FALSE(options.name);
  EXPECT_FALSE(options.tree);
  EXPECT_FALSE(options.group);
  EXPECT_FALSE(options.synthetic);
  EXPECT_EQ(options.churn, 0U);
  EXPECT_EQ(options.period, 1000U);
}

TEST(Options, TakeAValueAsTheNextWordOrBehindAnEqualsSign) {
  const Options options =
      accepted({"--name", "Model_x", "--tree=a=b.json", "--period", "50", "--group=staff"});
  EXPECT_EQ(options.name, "Model_x");
  EXPECT_EQ(options.tree, "a=b.json");
  EXPECT_EQ(options.period, 50U);
  EXPECT_EQ(options.group, "staff");
}

TEST(Options, TakeAValueThatLooksLikeASwitch) {
  EXPECT_EQ(accepted({"--name", "--tree"}).name, "--tree");
}

TEST(Options, TakeAShapeAndAChurn) {
  const Options options = accepted({"--synthetic", "100x1000", "--churn", "100000"});
  ASSERT_TRUE(options.synthetic);
  EXPECT_EQ(options.synthetic->groups, 100U);
  EXPECT_EQ(options.synthetic->parts, 1000U);
  EXPECT_EQ(options.churn, 100000U);
}

TEST(Options, AskingForHelpOrVersionHidesWhatStandsBehind) {
  EXPECT_TRUE(accepted({"--help", "--rubbish"}).help);
  EXPECT_TRUE(accepted({"-h"}).help);
  EXPECT_TRUE(accepted({"--version", "--rubbish"}).version);
}

struct Refusal {
  const char* what;
  Words words;
  const char* text;
};

class RefusedOptions : public testing::TestWithParam<Refusal> {};

TEST_P(RefusedOptions, SayWhatIsWrong) {
  const auto result = parseOptions(GetParam().words);
  const auto* error = std::get_if<Error>(&result);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->text, GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RefusedOptions,
    testing::Values(
        Refusal{"UnknownSwitch", {"--frob"}, "\"--frob\": no such switch; see modelsrvd --help"},
        Refusal{"SpareWord", {"tree.json"}, "\"tree.json\": no such switch; see modelsrvd --help"},
        Refusal{"EmptyWord", {""}, "\"\": no such switch; see modelsrvd --help"},
        Refusal{"ControlBytes",
                {"--a\n\x1b[31m"},
                "\"--a\\x0a\\x1b[31m\": no such switch; see modelsrvd --help"},
        Refusal{"NoValue", {"--name"}, "--name: wants a value"},
        Refusal{"EmptyName", {"--name", ""}, "--name: the value is empty"},
        Refusal{"EmptyTree", {"--tree="}, "--tree: the value is empty"},
        Refusal{"EmptyGroup", {"--group="}, "--group: the value is empty"},
        Refusal{"Twice", {"--name", "a", "--name=b"}, "--name: given twice"},
        Refusal{"PeriodTooShort",
                {"--period", "49"},
                "--period: \"49\" is not a number of milliseconds from 50 to 60000"},
        Refusal{"PeriodTooLong",
                {"--period", "60001"},
                "--period: \"60001\" is not a number of milliseconds from 50 to 60000"},
        Refusal{"PeriodNegative",
                {"--period", "-100"},
                "--period: \"-100\" is not a number of milliseconds from 50 to 60000"},
        Refusal{"PeriodWithUnit",
                {"--period", "100ms"},
                "--period: \"100ms\" is not a number of milliseconds from 50 to 60000"},
        Refusal{"PeriodOverflow",
                {"--period", "99999999999999999999"},
                "--period: \"99999999999999999999\" is not a number of milliseconds from 50 to "
                "60000"},
        Refusal{"ShapeWithoutCross",
                {"--synthetic", "100"},
                "--synthetic: \"100\" is not GROUPSxPARTS with both numbers from 1 to 65534"},
        Refusal{"ShapeOfNothing",
                {"--synthetic", "0x5"},
                "--synthetic: \"0x5\" is not GROUPSxPARTS with both numbers from 1 to 65534"},
        Refusal{"ShapeWithManyCrosses",
                {"--synthetic", "1x2x3"},
                "--synthetic: \"1x2x3\" is not GROUPSxPARTS with both numbers from 1 to 65534"},
        Refusal{"ShapeTooWide",
                {"--synthetic", "65535x1"},
                "--synthetic: \"65535x1\" is not GROUPSxPARTS with both numbers from 1 to 65534"},
        Refusal{"ShapeTooLarge",
                {"--synthetic", "65534x65534"},
                "--synthetic: \"65534x65534\" is not within 4000000 parts altogether"},
        Refusal{"ChurnOfNothing",
                {"--synthetic", "1x1", "--churn", "0"},
                "--churn: \"0\" is not a number of changes a second from 1 to 1000000"},
        Refusal{"ChurnAlone", {"--churn", "5"}, "--churn: only together with --synthetic"},
        Refusal{"TwoTrees",
                {"--tree", "a.json", "--synthetic", "1x1"},
                "--synthetic: not together with --tree"}),
    [](const auto& test) { return std::string(test.param.what); });

TEST(Options, TheUsageNamesEverySwitch) {
  for (const char* name : {"--name", "--tree", "--period", "--group", "--synthetic", "--churn",
                           "--help", "--version"}) {
    EXPECT_THAT(usageText(), testing::HasSubstr(name));
  }
}

}  // namespace
}  // namespace modelsrvd
