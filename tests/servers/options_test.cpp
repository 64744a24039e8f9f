#include "servers/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace modelsrvd {
namespace {

using Args = std::vector<std::string_view>;

Options parsedOptions(const Args& args) {
  const auto result = parseOptions(args);
  if (const auto* error = std::get_if<Error>(&result)) {
    ADD_FAILURE() << error->text;
    return {};
  }
  return std::get<Options>(result);
}

TEST(Options, DefaultToTheLiveTreeOncePerSecond) {
  const Options options = parsedOptions({});
  EXPECT_FALSE(options.help);
  EXPECT_FALSE(options.version);
  EXPECT_FALSE(options.name);
  EXPECT_FALSE(options.tree);
  EXPECT_FALSE(options.group);
  EXPECT_FALSE(options.state);
  EXPECT_FALSE(options.synthetic);
  EXPECT_EQ(options.churn, 0U);
  EXPECT_EQ(options.period, 1000U);
}

TEST(Options, AcceptAValueAsTheNextArgumentOrAfterAnEqualsSign) {
  const Options options = parsedOptions(
      {"--name", "Model_x", "--tree=a=b.json", "--period", "50", "--group=staff", "--state", "/s"});
  EXPECT_EQ(options.name, "Model_x");
  EXPECT_EQ(options.tree, "a=b.json");
  EXPECT_EQ(options.period, 50U);
  EXPECT_EQ(options.group, "staff");
  EXPECT_EQ(options.state, "/s");
}

TEST(Options, AcceptAValueThatLooksLikeAnOption) {
  EXPECT_EQ(parsedOptions({"--name", "--tree"}).name, "--tree");
}

TEST(Options, AcceptAShapeAndAChangeRate) {
  const Options options = parsedOptions({"--synthetic", "100x1000", "--churn", "100000"});
  ASSERT_TRUE(options.synthetic);
  EXPECT_EQ(options.synthetic->groups, 100U);
  EXPECT_EQ(options.synthetic->parts, 1000U);
  EXPECT_EQ(options.churn, 100000U);
}

TEST(Options, AcceptARecordingWithItsPace) {
  const Options options = parsedOptions({"--replay=a.rec", "--loop", "--speed", "0.5"});
  EXPECT_EQ(options.replay, "a.rec");
  EXPECT_EQ(options.speed, 0.5);
  EXPECT_TRUE(options.loop);
  EXPECT_FALSE(parsedOptions({"--replay", "a.rec"}).loop);
}

TEST(Options, AreNotCheckedAfterHelpOrVersion) {
  EXPECT_TRUE(parsedOptions({"--help", "--rubbish"}).help);
  EXPECT_TRUE(parsedOptions({"-h"}).help);
  EXPECT_TRUE(parsedOptions({"--version", "--rubbish"}).version);
}

struct InvalidOptionsCase {
  const char* what;
  Args args;
  const char* text;
};

class InvalidOptions : public testing::TestWithParam<InvalidOptionsCase> {};

TEST_P(InvalidOptions, AreReportedWithTheArgument) {
  const auto result = parseOptions(GetParam().args);
  const auto* error = std::get_if<Error>(&result);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->text, GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Table, InvalidOptions,
    testing::Values(
        InvalidOptionsCase{
            "UnknownOption", {"--frob"}, "\"--frob\": unknown option; see modelsrvd --help"},
        InvalidOptionsCase{"ExtraArgument",
                           {"tree.json"},
                           "\"tree.json\": unexpected argument; see modelsrvd --help"},
        InvalidOptionsCase{
            "EmptyArgument", {""}, "\"\": unexpected argument; see modelsrvd --help"},
        InvalidOptionsCase{"ControlBytes",
                           {"--a\n\x1b[31m"},
                           "\"--a\\x0a\\x1b[31m\": unknown option; see modelsrvd --help"},
        InvalidOptionsCase{"MissingValue", {"--name"}, "--name: missing value"},
        InvalidOptionsCase{"EmptyName", {"--name", ""}, "--name: empty value"},
        InvalidOptionsCase{"EmptyTree", {"--tree="}, "--tree: empty value"},
        InvalidOptionsCase{"EmptyGroup", {"--group="}, "--group: empty value"},
        InvalidOptionsCase{"EmptyState", {"--state="}, "--state: empty value"},
        InvalidOptionsCase{"Twice", {"--name", "a", "--name=b"}, "--name: given twice"},
        InvalidOptionsCase{"PeriodTooShort",
                           {"--period", "49"},
                           "--period: expected milliseconds from 50 to 60000, got \"49\""},
        InvalidOptionsCase{"PeriodTooLong",
                           {"--period", "60001"},
                           "--period: expected milliseconds from 50 to 60000, got \"60001\""},
        InvalidOptionsCase{"PeriodNegative",
                           {"--period", "-100"},
                           "--period: expected milliseconds from 50 to 60000, got \"-100\""},
        InvalidOptionsCase{"PeriodWithUnit",
                           {"--period", "100ms"},
                           "--period: expected milliseconds from 50 to 60000, got \"100ms\""},
        InvalidOptionsCase{
            "PeriodOverflow",
            {"--period", "99999999999999999999"},
            "--period: expected milliseconds from 50 to 60000, got \"99999999999999999999\""},
        InvalidOptionsCase{
            "ShapeWithoutCross",
            {"--synthetic", "100"},
            "--synthetic: expected GROUPSxPARTS with both numbers from 1 to 65534, got "
            "\"100\""},
        InvalidOptionsCase{
            "ShapeWithoutGroups",
            {"--synthetic", "0x5"},
            "--synthetic: expected GROUPSxPARTS with both numbers from 1 to 65534, got "
            "\"0x5\""},
        InvalidOptionsCase{
            "ShapeWithTwoCrosses",
            {"--synthetic", "1x2x3"},
            "--synthetic: expected GROUPSxPARTS with both numbers from 1 to 65534, got "
            "\"1x2x3\""},
        InvalidOptionsCase{
            "ShapeTooWide",
            {"--synthetic", "65535x1"},
            "--synthetic: expected GROUPSxPARTS with both numbers from 1 to 65534, got "
            "\"65535x1\""},
        InvalidOptionsCase{
            "ShapeTooLarge",
            {"--synthetic", "65534x65534"},
            "--synthetic: expected at most 4000000 parts in total, got \"65534x65534\""},
        InvalidOptionsCase{"ChurnOfZero",
                           {"--synthetic", "1x1", "--churn", "0"},
                           "--churn: expected changes per second from 1 to 1000000, got \"0\""},
        InvalidOptionsCase{"ChurnAlone", {"--churn", "5"}, "--churn: requires --synthetic"},
        InvalidOptionsCase{"SpeedOfZero",
                           {"--replay", "r", "--speed", "0"},
                           "--speed: expected a factor from 0.001 to 1000000, got \"0\""},
        InvalidOptionsCase{"SpeedThatIsNoNumber",
                           {"--replay", "r", "--speed", "nan"},
                           "--speed: expected a factor from 0.001 to 1000000, got \"nan\""},
        InvalidOptionsCase{"SpeedAlone", {"--speed", "2"}, "--speed: requires --replay"},
        InvalidOptionsCase{"LoopAlone", {"--loop"}, "--loop: requires --replay"},
        InvalidOptionsCase{
            "LoopTwice", {"--replay", "r", "--loop", "--loop"}, "--loop: given twice"},
        InvalidOptionsCase{"LoopWithValue",
                           {"--replay", "r", "--loop=1"},
                           "\"--loop=1\": unknown option; see modelsrvd --help"},
        InvalidOptionsCase{"ReplayOfATree",
                           {"--replay", "r", "--tree", "t"},
                           "--replay: not allowed together with --tree"},
        InvalidOptionsCase{"ReplayWithState",
                           {"--replay", "r", "--state", "s"},
                           "--replay: not allowed together with --state"},
        InvalidOptionsCase{
            "ReplayWithChurn", {"--replay", "r", "--churn", "5"}, "--churn: requires --synthetic"},
        InvalidOptionsCase{"TwoTrees",
                           {"--tree", "a.json", "--synthetic", "1x1"},
                           "--synthetic: not allowed together with --tree"}),
    [](const auto& test) { return std::string(test.param.what); });

TEST(Options, AreAllNamedInTheUsage) {
  for (const char* name : {"--name", "--tree", "--period", "--group", "--state", "--synthetic",
                           "--churn", "--replay", "--speed", "--loop", "--help", "--version"}) {
    EXPECT_THAT(usageText(), testing::HasSubstr(name));
  }
}

}  // namespace
}  // namespace modelsrvd
