#include <chrono>
#include <filesystem>

#include "tests/tools/watch_fixture.h"

namespace treectl {
namespace {

using test_support::ModelServer;

/// A server with a part whose value is in a file that does not exist yet, and a node of that kind.
class MissingValue : public WatchTest {
 protected:
  /// The address of the part or node `name`.
  [[nodiscard]] std::string at(const std::string& name) const {
    return '/' + device_.name() + '/' + name;
  }
  void writeFile() { static_cast<void>(files().write("value", "5\n")); }
  void removeFile() { std::filesystem::remove(files().file("value")); }

 private:
  ModelServer device_{ModelServer::ofTree(
      R"({"name": "Model_rig", "children": [{"name": "sensor", "type": "int32", "unit": "mV", "file": ")" +
      files().file("value") +
      R"("}, {"name": "empty", "children": []}, {"name": "x", "type": "int32", "value": 3}]})")};
};

TEST_F(MissingValue, IsNotThatOfANode) {
  const std::string message = "treectl: " + at("sensor") + ": the part has no value\n";
  expect({{"get", at("sensor")}, 3, "", message});
  expect({{"get", "--json", at("sensor")}, 3, "", message});
  expect({{"get", "--raw", at("sensor")}, 3, "", message});
  expect({{"get", at("empty")}, 3, "", "treectl: " + at("empty") + ": a node has no value\n"});
  // A node has a slash at its end.
  const std::string all = at("sensor") + '\n' + at("empty") + "/\n" + at("x") + '\n';
  expect({{"list", at("")}, 0, all});
  expect({{"list", "-r", at("")}, 0, all});
  const std::string others = at("empty") + "/\n" + at("x") + "\tint32\trw\t3\n";
  expect({{"list", "-l", at("")}, 3, others, message});
  expect({{"list", "-l", "-r", at("")}, 3, others, message});
}

TEST_F(MissingValue, IsLeftOutByWildcardsAndDumps) {
  expect({{"get", at("*")}, 0, at("x") + "\t3\n"});
  EXPECT_THAT(output({"dump", at("")}), testing::Not(testing::HasSubstr("sensor")));
  EXPECT_THAT(output({"dump", at("")}), testing::HasSubstr("\"value\":3"));
  EXPECT_THAT(output({"dump", at("*")}), testing::HasSubstr("\"value\":3"));
  expect({{"dump", at("sensor")}, 3, "", "treectl: " + at("sensor") + ": the part has no value\n"});
}

TEST_F(MissingValue, IsWatchedUntilItComes) {
  const auto watch = start({"watch", "--count", "2", at("sensor"), at("x")});
  EXPECT_EQ(watch->readLine(), at("x") + "\t3");
  writeFile();
  EXPECT_EQ(watch->readLine(), at("sensor") + "\t5");
}

TEST_F(MissingValue, IsAwaited) {
  const auto wait = start({"wait", at("sensor"), "==", "5"});
  EXPECT_EQ(runTreectl({"wait", at("sensor"), "==", "5", "--timeout", "0.1"}).status,
            (test_support::ExitStatus{6, 0}));
  writeFile();
  EXPECT_EQ(wait->waitForExit(), test_support::ExitStatus{}) << wait->errors();
}

TEST_F(MissingValue, LeavesNoOldValueInATable) {
  writeFile();
  const auto watch = start({"watch", "--csv", at("sensor"), at("x")});
  EXPECT_EQ(watch->readLine(), "time," + at("sensor") + ',' + at("x"));
  EXPECT_EQ(lineFrom(*watch, ","), ",5,3");
  removeFile();
  EXPECT_EQ(lineFrom(*watch, ","), ",,3");
  writeFile();
  EXPECT_EQ(lineFrom(*watch, ","), ",5,3");
}

TEST_F(MissingValue, EndsNoLineAndNoRecord) {
  writeFile();
  const auto watch = start({"watch", "--json", at("sensor"), at("x")});
  EXPECT_THAT(watch->readLine(), testing::Optional(testing::HasSubstr("\"value\":5")));
  EXPECT_THAT(watch->readLine(), testing::Optional(testing::HasSubstr("\"value\":3")));
  removeFile();
  set(at("x"), "4");
  EXPECT_THAT(watch->readLine(), testing::Optional(testing::HasSubstr("\"value\":4")));
}

TEST_F(MissingValue, BreaksWhatMustHold) {
  constexpr std::chrono::seconds held(3);
  writeFile();
  const auto wait = start({"wait", "--for", "3", at("sensor"), "==", "5"});
  const auto watch = start({"watch", "--csv", at("sensor")});
  EXPECT_EQ(watch->readLine(), "time," + at("sensor"));
  EXPECT_EQ(lineFrom(*watch, ","), ",5");
  removeFile();
  EXPECT_EQ(lineFrom(*watch, ","), ",");
  const auto begin = std::chrono::steady_clock::now();
  writeFile();
  EXPECT_EQ(wait->waitForExit(), test_support::ExitStatus{}) << wait->errors();
  EXPECT_GE(std::chrono::steady_clock::now() - begin, held);
}

}  // namespace
}  // namespace treectl
