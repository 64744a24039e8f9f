#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/support/model_server.h"
#include "tests/support/process.h"
#include "tests/support/scratch_directory.h"
#include "tests/system/terminal_shell.h"

// The built shell saves a served tree in a file and runs the file again.

namespace {

using test_support::ExitStatus;
using test_support::Finished;
using test_support::ModelServer;
using test_support::ScratchDirectory;

/// One value of the tree: the command that is saved for it, and another valid value.
struct Value {
  std::string command;
  std::string path;
  std::string other;
};

constexpr const char* savedTree = R"({"name": "Model_saved", "children": [
  {"name": "flag", "type": "bool", "value": true},
  {"name": "whole", "children": [
    {"name": "int8", "type": "int8", "value": 127},
    {"name": "int16", "type": "int16", "value": 32767},
    {"name": "int32", "type": "int32", "value": 2147483647},
    {"name": "int64", "type": "int64", "value": 9223372036854775807},
    {"name": "uint8", "type": "uint8", "value": 255},
    {"name": "uint16", "type": "uint16", "value": 65535},
    {"name": "uint32", "type": "uint32", "value": 4294967295},
    {"name": "uint64", "type": "uint64", "value": 18446744073709551615}]},
  {"name": "real", "children": [
    {"name": "float", "type": "float", "value": 0.1},
    {"name": "double", "type": "double", "value": 2.2250738585072014e-308}]},
  {"name": "text", "children": [
    {"name": "word", "type": "text", "value": "one"},
    {"name": "words", "type": "text", "value": " two  words "},
    {"name": "none", "type": "text", "value": ""},
    {"name": "odd", "type": "text", "value": "a\"b\"[m%s\u00ff"}]},
  {"name": "array", "children": [
    {"name": "named", "type": "double",
     "elements": [{"name": "p", "value": 1.5}, {"name": "i", "value": 1e300}]},
    {"name": "bare", "type": "uint8", "elements": [{"value": 1}, {"value": 2}]},
    {"name": "flags", "type": "bool", "elements": [{"value": false}, {"value": true}]},
    {"name": "texts", "type": "text", "elements": [{"value": "x y"}, {"value": ""}]},
    {"id": 12, "name": "", "type": "int64", "elements": [{"value": 7}]}]},
  {"id": 20, "name": "", "children": [{"name": "x", "type": "uint16", "value": 3}]}]})";

const std::vector<Value>& values() {
  static const std::vector<Value> all{
      {"set true ", "/flag", "false"},
      {"set 127 ", "/whole/int8", "1"},
      {"set 32767 ", "/whole/int16", "1"},
      {"set 2147483647 ", "/whole/int32", "1"},
      {"set 9223372036854775807 ", "/whole/int64", "1"},
      {"set 255 ", "/whole/uint8", "1"},
      {"set 65535 ", "/whole/uint16", "1"},
      {"set 4294967295 ", "/whole/uint32", "1"},
      {"set 18446744073709551615 ", "/whole/uint64", "1"},
      {"set 0.1 ", "/real/float", "1"},
      {"set 2.2250738585072014e-308 ", "/real/double", "1"},
      {"set one ", "/text/word", "other"},
      {"str \" two  words \" ", "/text/words", "other"},
      {"str \"\" ", "/text/none", "other"},
      {"set a\"b\"[m%s\xc3\xbf ", "/text/odd", "other"},
      {"set 1.5 ", "/array/named[0]", "1"},
      {"set 1e+300 ", "/array/named[1]", "1"},
      {"set 1 ", "/array/bare[0]", "11"},
      {"set 2 ", "/array/bare[1]", "12"},
      {"set false ", "/array/flags[0]", "true"},
      {"set true ", "/array/flags[1]", "false"},
      {"str \"x y\" ", "/array/texts[0]", "other"},
      {"str \"\" ", "/array/texts[1]", "other"},
      {"set 7 ", "/array/noname-12[0]", "1"},
      {"set 3 ", "/noname-20/x", "1"},
  };
  return all;
}

/// The file with all values, and the file with the other ones.
std::string savedLines() {
  std::string lines;
  for (const Value& value : values()) {
    lines += value.command + value.path + '\n';
  }
  return lines;
}
std::string otherLines() {
  std::string lines;
  for (const Value& value : values()) {
    lines += "set " + value.other + ' ' + value.path + '\n';
  }
  return lines;
}

class SaveSession : public testing::Test {
 protected:
  /// The file that `to` writes when the built shell saves the whole tree.
  std::string saved() {
    batchOutput(fixture_.name(), "to " + directory_.file("saved"));
    return directory_.read("saved");
  }

  /// Runs the built shell on a command file that begins with the connection.
  void runFile(const std::string& lines) {
    const std::string file = directory_.write("script", "cd " + fixture_.name() + '\n' + lines);
    const Finished run = test_support::run({test_support::treescopeProgram(), "-f", file});
    EXPECT_EQ(run.status, ExitStatus());
    EXPECT_EQ(run.errors, "");
  }

  ModelServer fixture_ = ModelServer::ofTree(savedTree);
  ScratchDirectory directory_;
};

TEST_F(SaveSession, WritesAndReportsEveryValueInTheseBytes) {
  std::string trace;
  for (const Value& value : values()) {
    const bool quoted = value.command.starts_with("str \"");
    const std::string text = quoted ? value.command.substr(5, value.command.size() - 7)
                                    : value.command.substr(4, value.command.size() - 5);
    trace += " make command [" + text + "] -> [" + value.command + "]\n";
  }
  EXPECT_EQ(batchOutput(fixture_.name(), "to " + directory_.file("saved")), trace);
  EXPECT_EQ(directory_.read("saved"), savedLines());
}

TEST_F(SaveSession, EveryWayToRunTheFileRestoresEveryValue) {
  const std::string file = directory_.write("replayed", savedLines());
  ASSERT_EQ(saved(), savedLines());
  for (const std::string command : {"from ", "cmdfrom ", ""}) {
    runFile(otherLines());
    ASSERT_EQ(saved(), otherLines());
    if (command.empty()) {
      runFile(savedLines());
    } else {
      batchOutput(fixture_.name(), command + file);
    }
    EXPECT_EQ(saved(), savedLines()) << command;
  }
}

TEST_F(SaveSession, AShellOnATerminalReplaysTheFile) {
  const std::string file = directory_.write("replayed", savedLines());
  runFile(otherLines());
  TerminalShell shell(fixture_.name());
  const std::string shown = shell.run("from " + file);
  EXPECT_THAT(shown, testing::HasSubstr(plainLine("/whole/int8 [127]")));
  EXPECT_EQ(saved(), savedLines());
}

TEST_F(SaveSession, AFullDiskDoesNotEndTheShell) {
  EXPECT_EQ(batchOutput(fixture_.name(), "to /dev/full flag;pwd"),
            " make command [true] -> [set true ]\n/" + fixture_.name() + '\n');
  const std::string text(100000, 'x');
  runFile("cd text\n");
  batchOutput(fixture_.name(), "str \"" + text + "\" /text/word");
  EXPECT_THAT(batchOutput(fixture_.name(), "to /dev/full;pwd"),
              testing::EndsWith("[set 3 ]\n/" + fixture_.name() + '\n'));
}

TEST_F(SaveSession, APathThatIsNotAFileIsAnError) {
  const std::string error = "ERROR: OpenFileError\n";
  EXPECT_EQ(batchOutput(fixture_.name(), "to " + directory_.path() + ";pwd"), error);
  EXPECT_EQ(batchOutput(fixture_.name(), "to " + directory_.file("none/f") + ";pwd"), error);
  EXPECT_EQ(batchOutput(fixture_.name(), "from " + directory_.path() + ";pwd"), error);
  EXPECT_EQ(batchOutput(fixture_.name(), "from " + directory_.file("none") + ";pwd"), error);
}

TEST_F(SaveSession, AKilledServerLeavesAnEmptyFile) {
  TerminalShell shell(fixture_.name());
  const std::string file = directory_.write("f", "from before");
  fixture_.kill();
  EXPECT_EQ(shell.run("to " + file), "");
  EXPECT_EQ(directory_.read("f"), "");
}

}  // namespace
