#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/support/model_server.h"
#include "tests/support/scratch_directory.h"
#include "tests/system/terminal_shell.h"

// A shell subscribes to parts of a tree whose server reads its file again or is started again.

namespace {

class ReloadSession : public testing::Test {
 protected:
  /// A description with the children `drive` of /drive, and /mark, whose value is new each time.
  std::string describe(const std::string& drive) {
    return R"({"children": [{"id": 1, "name": "drive", "children": [)" + drive +
           R"(]}, {"id": 9, "name": "mark", "type": "int32", "value": )" +
           std::to_string(++stamp_) + "}]}";
  }
  static std::string speed(int value) {
    return R"({"id": 4, "name": "speed", "type": "int32", "value": )" + std::to_string(value) + "}";
  }

  /// Expects that the shell, which has subscribed to "/mark", prints `lines` and the update of
  /// "/mark", which comes last, and nothing else.
  void expectLines(const std::vector<std::string>& lines) {
    const std::string shown = shell_.readThrough(plainLine("/mark"));
    EXPECT_PRED2(endsWithJust, shown, plainLines(lines) + plainLine("/mark"));
  }
  void reload(const std::string& drive, const std::vector<std::string>& lines) {
    file_.write(describe(drive));
    server_.process().signal(SIGHUP);
    expectLines(lines);
  }
  /// Stores values from another process.
  void store(const std::string& commands, const std::vector<std::string>& lines) {
    batchOutput(server_.name(), commands + ";set " + std::to_string(++stamp_) + " /mark");
    expectLines(lines);
  }

  int stamp_ = 0;
  test_support::TemporaryFile file_{describe(speed(42))};
  test_support::ModelServer server_{{"--tree", file_.path()}};
  TerminalShell shell_{server_.name()};
};

TEST_F(ReloadSession, SubscriptionsOutlastAChangeElsewhere) {
  shell_.run("eu drive/speed");
  shell_.run("eu mark");
  reload(R"({"id": 1, "name": "label", "type": "text", "value": "new"}, )" + speed(42), {});
  store("set 43 /drive/speed", {"/drive/speed"});
  reload(speed(44), {"/drive/speed"});
  EXPECT_EQ(shell_.run("eu -l"), plainLines({"/drive/speed", "/mark"}));
}

TEST_F(ReloadSession, SubscriptionsOutlastTheAbsenceOfThePart) {
  shell_.run("eu drive/speed");
  shell_.run("eu mark");
  reload("", {});
  reload(R"({"id": 4, "name": "other", "type": "int32", "value": 1})", {});
  store("set 2 /drive/other", {});
  reload(speed(42), {"/drive/speed"});
  store("set 43 /drive/speed", {"/drive/speed"});
  reload("", {});
  shell_.run("du");
  shell_.run("eu mark");
  reload(speed(42), {});
  store("set 43 /drive/speed", {});
}

TEST_F(ReloadSession, SubscriptionsOutlastAServerThatDoesNotHaveThePartYet) {
  shell_.run("eu drive/speed");
  shell_.run("eu mark");
  server_.kill();
  file_.write(describe(""));
  server_.restart();
  shell_.run("get mark");
  store("pwd", {});
  reload(speed(7), {"/drive/speed"});
  store("set 8 /drive/speed", {"/drive/speed"});
  EXPECT_EQ(shell_.run("eu -l"), plainLines({"/drive/speed", "/mark"}));
}

}  // namespace
