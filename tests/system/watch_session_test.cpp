#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/support/model_server.h"
#include "tests/support/process.h"
#include "tests/system/terminal_shell.h"

// A shell subscribes to parts of a served tree, and other processes store values.

namespace {

using test_support::ExitStatus;
using test_support::ModelServer;

constexpr const char* watchedTree = R"({"name": "Model_watched", "children": [
  {"id": 1, "name": "drive", "children": [
    {"id": 1, "name": "speed", "type": "int32", "value": 42},
    {"id": 2, "name": "label", "type": "text", "value": "two words"},
    {"id": 3, "name": "gains", "type": "double",
     "elements": [{"name": "p", "value": 1.5}, {"name": "i", "value": 0.25}]},
    {"id": 4, "name": "raw", "type": "uint8", "elements": [{"value": 1}, {"value": 2}]},
    {"id": 5, "name": "notes", "type": "text",
     "elements": [{"name": "a", "value": "x"}, {"name": "bb", "value": ""}]},
    {"id": 7, "name": "secret", "type": "bool", "value": false, "subscribable": false},
    {"id": 12, "name": "", "type": "uint16", "value": 7},
    {"id": 14, "name": "inner", "children": [
      {"id": 1, "name": "deep", "type": "int8", "elements": [{"name": "only", "value": -1}]}]}]},
  {"id": 2, "name": "empty", "children": []},
  {"id": 3, "name": "guarded", "children": [
    {"id": 1, "name": "open", "type": "int32", "value": 1},
    {"id": 2, "name": "closed", "type": "int32", "value": 1, "subscribable": false}]},
  {"id": 9, "name": "mark", "type": "int32", "value": 0}]})";

class WatchSession : public testing::Test {
 protected:
  /// Runs `commands` in another process, and expects a shell that has subscribed to
  /// "/mark" to print `lines` and nothing else.
  ///
  /// Updates arrive in the order of the changes, and "/mark" is stored last, so after
  /// its update there are no others.
  void expectUpdates(TerminalShell& shell, const std::string& commands,
                     const std::vector<std::string>& lines) {
    batchOutput(fixture_.name(), commands + ";set " + std::to_string(++stamp_) + " /mark");
    const std::string shown = shell.readThrough(plainLine("/mark"));
    EXPECT_PRED2(endsWithJust, shown, plainLines(lines) + plainLine("/mark")) << commands;
  }

  static void expectRun(TerminalShell& shell, const std::string& line,
                        const std::vector<std::string>& lines) {
    EXPECT_EQ(shell.run(line), plainLines(lines)) << line;
  }

  ModelServer fixture_ = ModelServer::ofTree(watchedTree);
  int stamp_ = 0;
};

struct Store {
  std::string command;
  std::vector<std::string> update;
};

const std::vector<Store>& stores() {
  static const std::vector<Store> all{
      {"set 43 /drive/speed", {"/drive/speed"}},
      {"set 43 /drive/speed", {}},
      {"set fast /drive/speed", {}},
      {"str \"on the bench\" /drive/label", {"/drive/label"}},
      {"str \"on the bench\" /drive/label", {}},
      {"set 0.5 /drive/gains[1]", {"/drive/gains", "+-- [0](p)  [1.5]", "+-- [1](i)  [0.5]"}},
      {"set 0.50 /drive/gains[1]", {}},
      {"set 2.5 /drive/gains[2]", {}},
      {"cd /drive/gains;set 2.5 p", {"/drive/gains", "+-- [0](p)  [2.5]", "+-- [1](i)  [0.5]"}},
      {"set 9 /drive/raw[0]", {"/drive/raw", "+-- [0]  [9]", "+-- [1]  [2]"}},
      {"str \"a\nb\" /drive/notes[1]", {"/drive/notes", "+-- [0](a)   [x]", "+-- [1](bb)  [a b]"}},
      {"set 8 /drive/noname-12", {"/drive/noname-12"}},
      {"set 5 /drive/inner/deep[0]", {"/drive/inner/deep", "+-- [0](only)  [5]"}},
      {"set true /drive/secret", {}},
      {"set 44 /drive/speed;set 10 /drive/raw[1]",
       {"/drive/speed", "/drive/raw", "+-- [0]  [9]", "+-- [1]  [10]"}},
  };
  return all;
}

TEST_F(WatchSession, UpdatesOfASubtreeArePrintedInTheseBytes) {
  TerminalShell shell(fixture_.name());
  expectRun(shell, "eu /mark", {});
  expectRun(shell, "eu -r drive", {});
  for (const Store& store : stores()) {
    expectUpdates(shell, store.command, store.update);
  }
}

TEST_F(WatchSession, UpdatesOfAPartArePrintedInTheseBytes) {
  TerminalShell shell(fixture_.name());
  expectRun(shell, "eu mark", {});
  expectRun(shell, "cd /drive/gains", {});
  expectRun(shell, "eu", {});
  expectRun(shell, "eu whatever", {});
  expectRun(shell, "cat /drive/notes", {});
  expectRun(shell, "eu -l", {"/mark", "/drive/gains", "/drive/gains", "/drive/notes"});
  for (const Store& store : stores()) {
    const bool watched = store.command.find("gains") != std::string::npos ||
                         store.command.find("notes") != std::string::npos ||
                         store.command.find(" p") != std::string::npos;
    expectUpdates(shell, store.command, watched ? store.update : std::vector<std::string>());
  }
}

TEST_F(WatchSession, AnUpdateIsPrintedIfStandardInputIsAPipe) {
  test_support::Process shell({test_support::treescopeProgram()});
  const std::string report = plainLine("/" + fixture_.name());
  ASSERT_TRUE(shell.write("cd " + fixture_.name() + "\neu -r /drive\neu mark\npwd\n"));
  ASSERT_TRUE(shell.waitForOutput(report)) << shell.output();
  const std::string before = shell.output();
  batchOutput(fixture_.name(), "set 0.5 /drive/gains[1];set 1 /mark");
  ASSERT_TRUE(shell.waitForOutput(plainLine("/mark"))) << shell.output();
  EXPECT_EQ(shell.finish(), (ExitStatus{0, 0}));
  const std::string update =
      plainLines({"/drive/gains", "+-- [0](p)  [1.5]", "+-- [1](i)  [0.5]", "/mark"});
  const std::string shown =
      shell.output().substr(0, shell.output().find(update) + update.size()).substr(before.size());
  EXPECT_PRED2(endsWithJust, shown, update);
  EXPECT_EQ(shell.errors(), "");
}

TEST_F(WatchSession, ADoubleSubscriptionPrintsOneUpdateAndEndsWithOneCommand) {
  TerminalShell shell(fixture_.name());
  expectRun(shell, "eu drive/gains", {});
  expectRun(shell, "eu drive/gains", {});
  expectRun(shell, "eu mark", {});
  expectRun(shell, "eu -l", {"/drive/gains", "/drive/gains", "/mark"});
  expectUpdates(shell, "set 0.5 /drive/gains[1]",
                {"/drive/gains", "+-- [0](p)  [1.5]", "+-- [1](i)  [0.5]"});
  expectRun(shell, "du drive/gains", {});
  expectRun(shell, "eu -l", {"/mark"});
  expectUpdates(shell, "set 0.75 /drive/gains[1]", {});
}

TEST_F(WatchSession, DroppedPartsAreNotPrinted) {
  TerminalShell shell(fixture_.name());
  expectRun(shell, "eu -r /", {});
  shell.run("eu mark");
  expectRun(shell, "du drive/inner", {});
  expectUpdates(shell, "set 5 /drive/inner/deep[0];set 8 /drive/noname-12", {"/drive/noname-12"});
  expectRun(shell, "cd drive", {});
  expectRun(shell, "du", {});
  expectRun(shell, "eu -l", {"/empty", "/guarded/open", "/mark", "/mark"});
  expectUpdates(shell, "set 9 /drive/noname-12;set 1 /drive/speed", {});
}

TEST_F(WatchSession, APartThatRefusesDoesNotEndTheSubtree) {
  TerminalShell shell(fixture_.name());
  expectRun(shell, "eu -r guarded", {"ERROR: UnknownError"});
  expectRun(shell, "eu mark", {});
  expectRun(shell, "eu -l", {"/guarded/open", "/mark"});
  expectUpdates(shell, "set 2 /guarded/open;set 2 /guarded/closed", {"/guarded/open"});
}

TEST_F(WatchSession, NothingIsPrintedAfterTheShellHasDisconnected) {
  TerminalShell shell(fixture_.name());
  expectRun(shell, "eu drive/gains", {});
  // Leaves the server with a subscription outside the current directory.
  expectRun(shell, "cd drive/inner", {});
  expectRun(shell, "cd", {});
  batchOutput(fixture_.name(), "set 0.5 /drive/gains[1]");
  expectRun(shell, "cd " + fixture_.name(), {});
  expectRun(shell, "eu -l", {});
  expectRun(shell, "eu mark", {});
  expectUpdates(shell, "set 0.75 /drive/gains[1]", {});
}

struct UpdateCase {
  const char* name;
  const char* line;
  const char* output;
};

class WatchLine : public WatchSession, public testing::WithParamInterface<UpdateCase> {};

TEST_P(WatchLine, WritesTheseBytes) {
  EXPECT_EQ(batchOutput(fixture_.name(), GetParam().line), GetParam().output);
}

constexpr const char* wholeDrive =
    "/drive/speed\n/drive/label\n/drive/gains\n/drive/raw\n/drive/notes\n/drive/noname-12\n"
    "/drive/inner/deep\n";

INSTANTIATE_TEST_SUITE_P(
    Subscribing, WatchLine,
    testing::Values(
        UpdateCase{"OnePart", "eu drive/speed;eu -l", "/drive/speed\n"},
        UpdateCase{"TwiceIsListedTwice", "eu drive/speed;eu mark;eu /drive/speed;eu -l",
                   "/drive/speed\n/mark\n/drive/speed\n"},
        UpdateCase{"ByCat", "cat drive/speed;cat -l", "/drive/speed\n"},
        UpdateCase{"CatTakesNoSubtree", "cat -r drive;pwd", "ERROR: OptionError\n"},
        UpdateCase{"NoneListsNothing", "eu -l;cat -l;eu -lmr nowhere", ""},
        UpdateCase{"ANodeIsNone", "eu drive;eu drive/;eu;eu /;eu -l", ""},
        UpdateCase{"ASubtree", "eu -r drive;eu -l", wholeDrive},
        UpdateCase{"ASubtreeWithASlash", "eu -r /drive/;eu -l", wholeDrive},
        UpdateCase{"TheCurrentSubtree", "cd drive;eu -r;eu -l", wholeDrive},
        UpdateCase{"InsideAPart", "cd drive/gains;eu;eu whatever;eu -l",
                   "/drive/gains\n/drive/gains\n"},
        UpdateCase{"ARefusedPart", "eu drive/secret;pwd", "ERROR: UnknownError\n"},
        UpdateCase{"ARefusedPartAtTheEndOfASubtree", "eu -r guarded;pwd", "ERROR: UnknownError\n"},
        UpdateCase{"AnUnknownChild", "eu drive/nothing;pwd", "ERROR: NotFound\n"},
        UpdateCase{"AnElement", "eu drive/gains[0];pwd", "ERROR: NotFound\n"},
        UpdateCase{"APathThatLeadsNowhere", "eu nothing/speed;pwd", "ERROR: ConnectError\n"},
        UpdateCase{"WithoutAConnection", "cd;eu /drive/speed;pwd", "ERROR: ConnectError\n"},
        UpdateCase{"NothingIsNoPart", "eu nothing;pwd", "ERROR: NotFound\n"}),
    [](const auto& test) { return test.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Dropping, WatchLine,
    testing::Values(
        UpdateCase{"All", "eu -r drive;eu mark;du;eu -l", ""},
        UpdateCase{"BelowANode", "eu -r drive;eu mark;du drive;eu -l", "/mark\n"},
        UpdateCase{"BelowADeeperNode", "eu drive/speed;eu -r drive/inner;du drive/inner;eu -l",
                   "/drive/speed\n"},
        UpdateCase{"WithASubtreeOption", "eu -r drive;eu mark;du -r drive;eu -l", "/mark\n"},
        UpdateCase{"EachCopy", "eu drive/speed;eu drive/speed;eu mark;du drive/speed;eu -l",
                   "/mark\n"},
        UpdateCase{"OnTheWay", "eu drive/speed;eu mark;du drive/speed/deeper;eu -l", "/mark\n"},
        UpdateCase{"NotByHalfAName", "eu drive/speed;du driv;du drive/spee;eu -l",
                   "/drive/speed\n"},
        UpdateCase{"BelowTheCurrentNode", "eu -r drive;eu mark;cd drive;du;eu -l", "/mark\n"},
        UpdateCase{"SaysNothingOfNothing", "du;du nowhere;du -r x/y;eu -l", ""},
        UpdateCase{"TakesNoLongOption", "du -l;pwd", "ERROR: OptionError\n"},
        UpdateCase{"WithoutAConnection", "cd;du;du drive;pwd", "/\n"}),
    [](const auto& test) { return test.param.name; });

}  // namespace
