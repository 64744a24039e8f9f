#include "tests/support/port_name.h"
#include "tests/support/sample_server.h"
#include "tests/tools/watch_fixture.h"

namespace treectl {
namespace {

using test_support::ExitStatus;
using test_support::Process;

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

TEST_F(Watch, KnowsTypesAlsoWithAShortTimeLimit) {
  const auto watch = start({"watch", "--json", "--timeout", "1", "--count", "1", "/{S}/drive/raw"});
  EXPECT_EQ(lineFrom(*watch, "\"type\""),
            "\"type\":\"uint8\",\"access\":\"rw\",\"unit\":\"\",\"value\":[1,2,3]}");
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

TEST_F(Watch, KeepsTheAddressOfAPartThatIsReportedAgain) {
  const std::string name = test_support::uniquePortName();
  test_support::SampleServer sample(name);
  const auto watch = start({"watch", "/" + name + "/drive"});
  std::string line;
  while (line.find("/secret") == std::string::npos) {
    // The last of the current values, since it takes no subscriptions.
    line = watch->readLine().value_or("/secret is missing");
  }
  ASSERT_EQ(line, "/" + name + "/drive/secret\tfalse");
  sample.speed.setSubscribable(false);
  sample.speed.setSubscribable(true);
  EXPECT_EQ(sample.speed.setValue(43), ModelSrv::ModelRes_Success);
  EXPECT_EQ(watch->readLine(), "/" + name + "/drive/speed\t43");
  // Its namesake has no name in its address, and leaves none when it goes.
  EXPECT_EQ(sample.drive.remove(&sample.speedAgain), ModelSrv::ModelRes_Success);
  EXPECT_EQ(sample.drive.add(&sample.speedAgain), ModelSrv::ModelRes_Success);
  EXPECT_EQ(watch->readLine(), "/" + name + "/drive/#13\t99");
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
  expect({{"watch", "--for", "1", "/{S}/drive/secret"},
          5,
          "/{S}/drive/secret\tfalse\n",
          "treectl: /{S}/drive/secret: the part cannot be subscribed to\n"});
  expect({{"wait", "/{S}/drive/secret", "==", "true"},
          5,
          "",
          "treectl: /{S}/drive/secret: the part cannot be subscribed to\n"});
}

TEST_F(Watch, EndsAfterATimeWithTheStatusOfItsAddresses) {
  expect({{"watch", "--for", "1", "/{S}/drive/speed"}, 0, "/{S}/drive/speed\t42\n"});
  expect({{"watch", "--for", "1", "/{S}/none", "/{S}/drive/speed"},
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

TEST_F(Watch, OfATableHasNoValuesOfAServerThatIsLost) {
  test_support::ModelServer other({"--synthetic", "1x1"});
  const auto watch = start({"watch", "--csv", "/{S}/drive/speed", "/{S}/settings/mode",
                            "/" + other.name() + "/group_000/item_0000"});
  EXPECT_TRUE(watch->readLine());
  EXPECT_EQ(lineFrom(*watch, ","), ",42,off,0");
  server().kill();
  EXPECT_EQ(lineFrom(*watch, ","), ",,,0");
  expect({{"set", "/" + other.name() + "/group_000/item_0000", "7"}});
  EXPECT_EQ(lineFrom(*watch, ","), ",,,7");
  server().restart();
  std::string line;
  for (int rows = 0; line != ",42,off,7"; ++rows) {
    line = lineFrom(*watch, ",");
    ASSERT_LE(rows, 1) << line;
  }
}

TEST_F(Watch, ReadsWhatTakesNoSubscriptionsAgainAfterALoss) {
  const auto watch = start({"watch", "--csv", "/{S}/drive"});
  const std::string row = ",42,two words,1.5 0.25,1 2 3,A-17,0,false,7,99";
  EXPECT_TRUE(watch->readLine());
  EXPECT_EQ(lineFrom(*watch, ","), row);
  server().kill();
  EXPECT_EQ(lineFrom(*watch, ","), std::string(9, ','));
  server().restart();
  EXPECT_EQ(lineFrom(*watch, ","), row);
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

}  // namespace
}  // namespace treectl
