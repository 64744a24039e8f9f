#include "tests/support/port_name.h"
#include "tests/tools/watch_fixture.h"

namespace treectl {
namespace {

using test_support::ExitStatus;
using test_support::Process;

using Wait = WatchTest;

TEST_F(Wait, ReturnsIfTheConditionHolds) {
  const std::vector<std::vector<std::string>> conditions{
      {"/{S}/drive/speed", "==", "42"},
      {"/{S}/drive/speed", "==", "42.0"},
      {"/{S}/drive/speed", "!=", "-7"},
      {"/{S}/drive/speed", ">", "-7"},
      {"/{S}/drive/speed", "<=", "42"},
      {"/{S}/settings/big", ">", "18446744073709551614"},
      {"/{S}/settings/low", "<", "-9223372036854775807"},
      {"/{S}/drive/label", "=~", "^two"},
      {"/{S}/drive/label", "<", "twp"},
      {"/{S}/drive/secret", "==", "0"},
      {"/{S}/drive/gains[i]", ">=", "0.25"},
      {"/{S}/drive/gains", "==", "1.5 0.25"}};
  for (std::vector<std::string> arguments : conditions) {
    arguments.insert(arguments.begin(), "wait");
    expect({arguments});
  }
}

TEST_F(Wait, WaitsUntilTheConditionHolds) {
  const auto wait = start({"wait", "/{S}/drive/gains", "==", "1.5 7"});
  const auto change = start({"wait", "/{S}/drive/gains", "changed"});
  const std::string timedOut = "treectl: /{S}/drive/gains: the condition did not hold in time\n";
  expect({{"wait", "/{S}/drive/gains[1]", "==", "7", "--timeout", "1"},
          6,
          "",
          "treectl: /{S}/drive/gains[1]: the condition did not hold in time\n"});
  // Whether both have begun, only their end shows.
  for (int i = 0; !change->waitForExit(std::chrono::milliseconds(200)); ++i) {
    set("/{S}/drive/gains[0]", std::to_string(i));
  }
  set("/{S}/drive/gains[0]", "1.5");
  set("/{S}/drive/gains[1]", "7");
  EXPECT_EQ(wait->waitForExit(), ExitStatus{});
  expect({{"wait", "/{S}/drive/gains", "changed", "--timeout", "1"}, 6, "", timedOut});
}

TEST_F(Wait, RequiresThatTheConditionHoldsForATime) {
  expect({{"wait", "--for", "0.2", "--timeout", "10", "/{S}/drive/speed", "==", "42"}});
  expect({{"wait", "--for", "10", "--timeout", "1", "/{S}/drive/speed", "==", "42"},
          6,
          "",
          "treectl: /{S}/drive/speed: the condition did not hold in time\n"});
}

TEST_F(Wait, GoesOnIfTheServerReturnsWithTheSameValue) {
  const auto wait = start({"wait", "--for", "2", "/{S}/drive/speed", "==", "42"});
  const auto watch = start({"watch", "/{S}/drive/speed"});
  EXPECT_TRUE(watch->readLine());
  server().kill();
  server().restart();
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/speed\t!lost"));
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/speed\t!restored"));
  EXPECT_EQ(wait->waitForExit(), ExitStatus{}) << wait->errors();
}

TEST_F(Wait, WaitsForAServerThatIsNotUpYet) {
  const std::string name = test_support::uniquePortName();
  const auto wait = start({"wait", "/" + name + "/group_000/item_0000", "==", "0"});
  Process late({test_support::modelsrvdProgram(), "--synthetic", "1x1", "--name", name});
  EXPECT_EQ(wait->waitForExit(), ExitStatus{}) << wait->errors();
  late.signal(SIGTERM);
  EXPECT_EQ(late.waitForExit(), ExitStatus{});
}

TEST_F(Wait, EndsInTimeIfTheServerHangs) {
  server().hang();
  // At once, unless the machine is busy; not after the limit of a request.
  EXPECT_TRUE(test_support::eventually([&] {
    const auto begin = std::chrono::steady_clock::now();
    expect({{"wait", "--timeout", "0.2", "/{S}/drive/speed", "==", "42"},
            6,
            "",
            "treectl: /{S}/drive/speed: the condition did not hold in time: the server does not "
            "answer\n"});
    return std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(1500);
  }));
  server().resume();
  const auto statusWithoutTime = [&](const std::string& value) {
    return runTreectl({"wait", "--timeout", "0", filled("/{S}/drive/speed"), "==", value}).status;
  };
  EXPECT_TRUE(test_support::eventually([&] { return statusWithoutTime("42") == ExitStatus{}; }));
  EXPECT_EQ(statusWithoutTime("43"), (ExitStatus{6, 0}));
}

TEST_F(Wait, SaysThatThereWasNoServer) {
  const std::string name = test_support::uniquePortName();
  const auto never =
      runTreectl({"wait", "/" + name + "/group_000/item_0000", "==", "0", "--timeout", "0.1"});
  EXPECT_EQ(never.status, (ExitStatus{6, 0}));
  EXPECT_THAT(never.errors, testing::StartsWith("treectl: /" + name +
                                                "/group_000/item_0000: the condition did "
                                                "not hold in time: no server " +
                                                name + " (there are: "));
  const auto lost = start({"wait", "/{S}/drive/speed", "==", "99", "--timeout", "2"});
  server().kill();
  EXPECT_EQ(lost->waitForExit(), (ExitStatus{6, 0}));
  EXPECT_THAT(lost->errors(), testing::HasSubstr(filled("in time: no server {S} (")));
  server().restart();
}

TEST_F(Wait, RejectsWhatCannotBeAwaited) {
  expect({{"wait", "/{S}/drive", "==", "1"}, 3, "", "treectl: /{S}/drive: a node has no value\n"});
  expect({{"wait", "/{S}/drive/speed", "~", "1"},
          2,
          "",
          "treectl: \"~\": expected ==, !=, <, <=, >, >=, =~ or changed\n"});
  expect({{"wait", "/{S}/drive/speed", "=="}, 2, "", "treectl: ==: missing value\n"});
  expect({{"wait", "/{S}/drive/speed", "changed", "1"},
          2,
          "",
          "treectl: changed: expected no value\n"});
  expect({{"wait", "/{S}/drive/*", "==", "1"},
          2,
          "",
          "treectl: /{S}/drive/*: no wildcards in an address of wait\n"});
  expect({{"wait", "/{S}/drive/speed", "==", "fast"},
          2,
          "",
          "treectl: /{S}/drive/speed: expected a number to compare with\n"});
  EXPECT_EQ(runTreectl({"wait", "/x/y", "=~", "("}).status, (ExitStatus{2, 0}));
}

}  // namespace
}  // namespace treectl
