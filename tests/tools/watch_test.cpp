#include <signal.h>

#include "tests/support/port_name.h"
#include "tests/tools/treectl_fixture.h"

namespace treectl {
namespace {

using test_support::ExitStatus;
using test_support::Process;

class WatchTest : public TreectlTest {
 protected:
  /// Starts the program.
  std::unique_ptr<Process> start(const std::vector<std::string>& arguments) {
    std::vector<std::string> command{test_support::buildDirectory() + "/bin/treectl"};
    for (const std::string& argument : arguments) {
      command.push_back(filled(argument));
    }
    return std::make_unique<Process>(command);
  }

  void set(const std::string& address, const std::string& value) {
    expect({{"set", "--protected", address, value}});
  }

  /// The next line, without what stands before `key`.
  static std::string lineFrom(Process& process, std::string_view key) {
    const std::string line = process.readLine().value_or("nothing");
    return line.substr(std::min(line.find(key), line.size()));
  }
};

using Watch = WatchTest;

TEST_F(Watch, PrintsTheCurrentValueThenEachChange) {
  const auto watch = start({"watch", "--count", "4", "/{S}/drive/speed", "/{S}/drive/gains"});
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/speed\t42"));
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/gains\t1.5 0.25"));
  set("/{S}/drive/speed", "43");
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/speed\t43"));
  // A changed element has its index.
  set("/{S}/drive/gains[i]", "2");
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/gains[1]\t2"));
  EXPECT_EQ(watch->waitForExit(), ExitStatus{}) << watch->errors();
  EXPECT_EQ(watch->errors(), "");
}

TEST_F(Watch, OfANodeCoversAllBelow) {
  const auto watch = start({"watch", "-s", "{S}", "/settings"});
  EXPECT_EQ(watch->readLine(), "/settings/setpoint\t10");
  EXPECT_EQ(watch->readLine(), "/settings/mode\toff");
  EXPECT_EQ(watch->readLine(), "/settings/big\t18446744073709551615");
  EXPECT_EQ(watch->readLine(), "/settings/low\t-9223372036854775808");
  EXPECT_EQ(watch->readLine(), "/settings/ratio\t0.1");
  set("/{S}/settings/mode", "fast");
  EXPECT_EQ(watch->readLine(), "/settings/mode\tfast");
}

TEST_F(Watch, TakesWildcardsAndElements) {
  const auto watch = start({"watch", "/{S}/dr*/spee?", "/{S}/drive/gains[*]"});
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/speed\t42"));
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/#13\t99"));
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/gains[0]\t1.5"));
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/gains[1]\t0.25"));
  set("/{S}/drive/label", "not watched");
  set("/{S}/drive/gains[p]", "7");
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/gains[0]\t7"));
}

TEST_F(Watch, LeavesTheFirstValuesOutIfWanted) {
  const auto watch = start({"watch", "--changes", "--time", "/{S}/drive/label"});
  // The first change that is printed shows that the watch has begun.
  std::string line;
  for (int i = 0; line.empty(); ++i) {
    set("/{S}/drive/label", "!" + std::to_string(i));
    line = watch->readLine(std::chrono::milliseconds(200)).value_or("");
  }
  EXPECT_THAT(line, testing::MatchesRegex(
                        "....-..-..T..:..:..\\.......(Z|[+-]..:..)\t/.*/drive/label\t\\\\![0-9]+"));
}

TEST_F(Watch, PrintsJson) {
  const auto watch = start({"watch", "--json", "/{S}/drive/gains"});
  EXPECT_EQ(lineFrom(*watch, "\"address\""),
            filled("\"address\":\"/{S}/drive/gains\",\"type\":\"double\",\"access\":\"rw\","
                   "\"unit\":\"\",\"value\":[1.5,0.25]}"));
  set("/{S}/drive/gains[1]", "-inf");
  EXPECT_EQ(lineFrom(*watch, "\"address\""),
            filled("\"address\":\"/{S}/drive/gains[1]\",\"type\":\"double\",\"element\":\"i\","
                   "\"access\":\"rw\",\"unit\":\"\",\"value\":\"-inf\",\"changes\":1}"));
}

TEST_F(Watch, PrintsATable) {
  const auto watch =
      start({"watch", "--csv", "/{S}/drive/speed", "/{S}/drive/gains", "/{S}/drive/label"});
  EXPECT_EQ(watch->readLine(), filled("time,/{S}/drive/speed,/{S}/drive/gains,/{S}/drive/label"));
  EXPECT_EQ(lineFrom(*watch, ","), ",42,1.5 0.25,two words");
  set("/{S}/drive/gains[1]", "3");
  EXPECT_EQ(lineFrom(*watch, ","), ",42,1.5 3,two words");
  set("/{S}/drive/label", "a,\"b");
  EXPECT_EQ(lineFrom(*watch, ","), ",42,1.5 3,\"a,\"\"b\"");
}

TEST_F(Watch, HoldsBackWhatComesTooSoon) {
  const auto watch = start({"watch", "--every", "0.2", "/{S}/drive/speed"});
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/speed\t42"));
  set("/{S}/drive/speed", "1");
  set("/{S}/drive/speed", "2");
  set("/{S}/drive/speed", "3");
  std::string line;
  for (int lines = 0; line != filled("/{S}/drive/speed\t3"); ++lines) {
    line = watch->readLine().value_or("nothing");
    ASSERT_LE(lines, 2) << line;
  }
}

TEST_F(Watch, CountsTheChangesThatItHoldsBack) {
  const auto watch = start({"watch", "--json", "--every", "1000", "/{S}/drive/speed"});
  EXPECT_TRUE(watch->readLine());
  const auto seen = start({"watch", "/{S}/drive/speed"});
  EXPECT_TRUE(seen->readLine());
  for (const char* const value : {"1", "2", "3"}) {
    set("/{S}/drive/speed", value);
    EXPECT_EQ(seen->readLine(), filled("/{S}/drive/speed\t") + value);
  }
  // What is printed at once follows the changes in the same connection.
  watch->signal(SIGTERM);
  EXPECT_EQ(lineFrom(*watch, "\"value\""), "\"value\":3,\"changes\":3}");
}

TEST_F(Watch, KeepsWhatItHoldsBackOfAPartThatLeaves) {
  const auto parts = [](const std::string& list) {
    return R"({"name": "Model_gone", "children": [)" + list + "]}";
  };
  const std::string a = R"({"id": 1, "name": "a", "type": "int32", "value": 1})";
  const std::string b = R"({"id": 2, "name": "b", "type": "text", "value": "x"})";
  const std::string c = R"({"id": 3, "name": "c", "type": "text", "value": "x"})";
  test_support::ModelServer reloaded({"--tree", files().write("tree.json", parts(a))});
  const auto reload = [&](const std::string& list) {
    static_cast<void>(files().write("tree.json", parts(list)));
    reloaded.process().signal(SIGHUP);
  };
  const auto watch = start({"watch", "--json", "--every", "1000", "-s", reloaded.name(), "/"});
  EXPECT_EQ(lineFrom(*watch, "\"address\""),
            R"("address":"/a","type":"int32","access":"rw","unit":"","value":1})");
  expect({{"set", "-s", reloaded.name(), "/a", "2"}});
  reload(R"({"id": 1, "name": "a", "type": "int32", "value": 2},)" + b);
  EXPECT_THAT(lineFrom(*watch, "\"address\""), testing::StartsWith("\"address\":\"/b\""));
  reload(b + ',' + c);
  EXPECT_THAT(lineFrom(*watch, "\"address\""), testing::StartsWith("\"address\":\"/c\""));
  watch->signal(SIGTERM);
  EXPECT_THAT(
      lineFrom(*watch, "\"address\""),
      testing::StartsWith(R"("address":"/a","type":"int32","access":"rw","unit":"","value":2,)"));
}

TEST_F(Watch, KeepsTheColumnsOfATable) {
  const auto parts = [](const std::string& list) {
    return R"({"name": "Model_gone", "children": [)" + list + "]}";
  };
  const std::string a = R"({"id": 1, "name": "a", "type": "int32", "value": 1})";
  const std::string b = R"({"id": 2, "name": "b", "type": "text", "value": "x"})";
  test_support::ModelServer reloaded({"--tree", files().write("tree.json", parts(a + ',' + b))});
  const auto watch = start({"watch", "--csv", "-s", reloaded.name(), "/"});
  EXPECT_EQ(watch->readLine(), "time,/a,/b");
  EXPECT_EQ(lineFrom(*watch, ","), ",1,x");
  static_cast<void>(files().write(
      "tree.json", parts(R"({"id": 2, "name": "b", "type": "text", "value": "y"},)"
                         R"({"id": 3, "name": "c", "type": "text", "value": "new"})")));
  reloaded.process().signal(SIGHUP);
  std::string line;
  for (int rows = 0; line != ",,y"; ++rows) {
    line = lineFrom(*watch, ",");
    ASSERT_LE(rows, 3) << line;
  }
}

TEST_F(Watch, GoesOnAfterALoss) {
  const auto watch = start({"watch", "/{S}/drive/speed"});
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/speed\t42"));
  server().kill();
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/speed\t!lost"));
  server().restart();
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/speed\t!restored"));
  set("/{S}/drive/speed", "5");
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/speed\t5"));
}

TEST_F(Watch, EndsAtALossIfWanted) {
  const auto watch = start({"watch", "--fail-on-loss", "--json", "/{S}/drive/speed"});
  EXPECT_TRUE(watch->readLine());
  server().kill();
  EXPECT_EQ(lineFrom(*watch, "\"address\""),
            filled("\"address\":\"/{S}/drive/speed\",\"event\":\"lost\"}"));
  EXPECT_EQ(watch->waitForExit(), (ExitStatus{4, 0}));
}

TEST_F(Watch, PrintsThePresentValueOfAPartWithoutSubscriptions) {
  expect({{"watch", "--for", "0.1", "/{S}/drive/secret"},
          5,
          "/{S}/drive/secret\tfalse\n",
          "treectl: /{S}/drive/secret: the part cannot be subscribed to\n"});
  expect({{"wait", "/{S}/drive/secret", "==", "true"},
          5,
          "",
          "treectl: /{S}/drive/secret: the part cannot be subscribed to\n"});
}

TEST_F(Watch, EndsAfterATimeWithTheStatusOfItsAddresses) {
  expect({{"watch", "--for", "0.1", "/{S}/drive/speed"}, 0, "/{S}/drive/speed\t42\n"});
  expect({{"watch", "--for", "0.1", "/{S}/none", "/{S}/drive/speed"},
          3,
          "/{S}/drive/speed\t42\n",
          "treectl: /{S}/none: part none: no such part (nearest: notes)\n"});
  expect({{"watch", "/{S}/none"},
          3,
          "",
          "treectl: /{S}/none: part none: no such part (nearest: notes)\n"});
  for (const int signal : {SIGINT, SIGTERM}) {
    const auto watch = start({"watch", "/{S}/drive/speed"});
    EXPECT_TRUE(watch->readLine());
    watch->signal(signal);
    EXPECT_EQ(watch->waitForExit(), (ExitStatus{128 + signal, 0}));
  }
}

TEST_F(Watch, OfATableEndsAtALossIfWanted) {
  const auto watch = start({"watch", "--fail-on-loss", "--csv", "/{S}/drive/speed"});
  EXPECT_EQ(watch->readLine(), filled("time,/{S}/drive/speed"));
  EXPECT_TRUE(watch->readLine());
  server().kill();
  EXPECT_EQ(watch->waitForExit(), (ExitStatus{4, 0}));
}

TEST_F(Watch, OfATablePrintsTheRowThatItHoldsBack) {
  const auto watch = start({"watch", "--csv", "--every", "1000", "/{S}/drive/speed"});
  EXPECT_TRUE(watch->readLine());
  EXPECT_EQ(lineFrom(*watch, ","), ",42");
  const auto seen = start({"watch", "/{S}/drive/speed"});
  EXPECT_TRUE(seen->readLine());
  set("/{S}/drive/speed", "43");
  EXPECT_EQ(seen->readLine(), filled("/{S}/drive/speed\t43"));
  watch->signal(SIGTERM);
  EXPECT_EQ(lineFrom(*watch, ","), ",43");
}

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
  expect({{"wait", "/{S}/drive/gains[1]", "==", "7", "--timeout", "0.1"},
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
  expect({{"wait", "/{S}/drive/gains", "changed", "--timeout", "0.1"}, 6, "", timedOut});
}

TEST_F(Wait, RequiresThatTheConditionHoldsForATime) {
  expect({{"wait", "--for", "0.2", "--timeout", "10", "/{S}/drive/speed", "==", "42"}});
  expect({{"wait", "--for", "10", "--timeout", "0.1", "/{S}/drive/speed", "==", "42"},
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

using Record = WatchTest;

TEST_F(Record, IsReplayed) {
  const auto record = start({"record", "-o", "{D}/fault.rec", "/{S}/drive"});
  const auto watch = start({"watch", "/{S}/drive/speed"});
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/speed\t42"));
  // The first flush shows that the recording has begun.
  ASSERT_TRUE(test_support::eventually([&] { return fileSize("fault.rec") > 100; }));
  set("/{S}/drive/speed", "50");
  set("/{S}/drive/gains[1]", "9");
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/speed\t50"));
  ASSERT_TRUE(test_support::eventually(
      [&] { return files().read("fault.rec").find("\"value\":9,") != std::string::npos; }));
  record->signal(SIGTERM);
  EXPECT_EQ(record->waitForExit(), ExitStatus{}) << record->errors();
  EXPECT_THAT(files().read("fault.rec"), testing::StartsWith("{\"format\":1,\"version\":\""));
  set("/{S}/drive/speed", "1");
  set("/{S}/drive/gains[1]", "1");
  expect({{"replay", "--as-fast-as-possible", "{D}/fault.rec"},
          5,
          "",
          "treectl: /{S}/drive/offset: the part is protected\n"
          "stored 9, skipped 1, refused 1\n"});
  expect({{"get", "/{S}/drive/speed", "/{S}/drive/gains"},
          0,
          "/{S}/drive/speed\t50\n/{S}/drive/gains\t1.5 9\n"});
  expect({{"replay", "--speed", "1000", "--protected", "{D}/fault.rec"},
          0,
          "",
          "stored 10, skipped 1, refused 0\n"});
}

TEST_F(Record, IsReplayedWithoutItsUnfinishedLine) {
  static_cast<void>(files().write(
      "cut.rec",
      filled("{\"format\":1,\"parts\":[{\"address\":\"/x\",\"value\":1}]}\n"
             "{\"time\":\"2026-11-21T09:30:01.000123Z\",\"address\":\"/{S}/drive/speed\","
             "\"value\":8}\n"
             "{\"time\":\"2026-11-21T09:30:01.100123Z\",\"address\":\"/{S}/drive/speed\","
             "\"event\":\"lost\"}\n"
             "{\"time\":\"2026-11-21T09:3")));
  expect({{"replay", "{D}/cut.rec"}, 0, "", "stored 1, skipped 0, refused 0\n"});
  expect({{"get", "/{S}/drive/speed"}, 0, "8\n"});
  static_cast<void>(files().write("bad.rec", "{\"format\":2}\n"));
  expect(
      {{"replay", "{D}/bad.rec"}, 9, "", "treectl: {D}/bad.rec: expected a header of format 1\n"});
}

}  // namespace
}  // namespace treectl
