#include "tests/tools/treectl_fixture.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

namespace treectl {

const std::string_view TreectlTest::tree = R"({"name": "Model_rig", "children": [
  {"id": 1, "name": "drive", "children": [
    {"id": 1, "name": "speed", "type": "int32", "value": 42, "unit": "rpm"},
    {"id": 2, "name": "label", "type": "text", "value": "two words"},
    {"id": 3, "name": "gains", "type": "double", "elements": [
      {"name": "p", "value": 1.5}, {"name": "i", "value": 0.25}]},
    {"id": 4, "name": "raw", "type": "uint8", "elements": [{"value": 1}, {"value": 2}, {"value": 3}]},
    {"id": 5, "name": "serial", "type": "text", "value": "A-17", "access": "read-only"},
    {"id": 6, "name": "offset", "type": "float", "value": 0, "access": "protected"},
    {"id": 7, "name": "secret", "type": "bool", "value": false, "subscribable": false},
    {"id": 12, "name": "", "type": "uint16", "value": 7},
    {"id": 13, "name": "speed", "type": "int32", "value": 99}]},
  {"id": 2, "name": "empty", "children": []},
  {"id": 3, "name": "settings", "children": [
    {"name": "setpoint", "type": "int32", "value": 10, "minimum": 5, "maximum": 30,
     "text": "the target"},
    {"name": "mode", "type": "text", "value": "off", "choices": ["off", "slow", "fast"]},
    {"name": "big", "type": "uint64", "value": 18446744073709551615},
    {"name": "low", "type": "int64", "value": -9223372036854775808},
    {"name": "ratio", "type": "double", "value": 0.1}]},
  {"id": 4, "name": "a/b*c?[d]\\e", "type": "text", "value": "tab\there\nback\\slash \u0001"},
  {"id": 5, "name": "#5", "type": "int32", "value": 5},
  {"id": 6, "name": "line\nfeed", "type": "int32", "value": 6},
  {"id": 7, "name": "notes", "type": "text", "elements": [{"value": "one\ntwo"}, {"value": "x"}]}]})";

std::string treectlProgram() {
  const char* const given = std::getenv("TREESCOPE_TEST_TREECTL");
  return given != nullptr ? given : test_support::buildDirectory() + "/bin/treectl";
}

test_support::Finished runTreectl(const std::vector<std::string>& arguments,
                                  std::string_view input) {
  std::vector<std::string> command{treectlProgram()};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return test_support::run(command, input);
}

std::string TreectlTest::filled(std::string text) const {
  for (const auto& [mark, value] :
       {std::pair("{S}", server_.name()), std::pair("{D}", files_.path())}) {
    for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at)) {
      text.replace(at, 3, value);
    }
  }
  return text;
}

std::size_t TreectlTest::fileSize(const std::string& name) const {
  std::error_code error;
  const auto size = std::filesystem::file_size(files_.file(name), error);
  return error ? 0 : static_cast<std::size_t>(size);
}

void TreectlTest::expect(const Expected& run) {
  std::vector<std::string> arguments;
  std::string line = "treectl";
  for (const std::string& argument : run.arguments) {
    arguments.push_back(filled(argument));
    line += ' ' + argument;
  }
  SCOPED_TRACE(line);
  const test_support::Finished finished = runTreectl(arguments, run.input);
  EXPECT_EQ(finished.output, filled(run.output));
  EXPECT_EQ(finished.errors, filled(run.errors));
  EXPECT_EQ(finished.status, (test_support::ExitStatus{run.status, 0}));
}

std::string TreectlTest::output(const std::vector<std::string>& arguments) {
  std::vector<std::string> words;
  for (const std::string& argument : arguments) {
    words.push_back(filled(argument));
  }
  const test_support::Finished finished = runTreectl(words);
  EXPECT_EQ(finished.status, test_support::ExitStatus{}) << finished.errors;
  return finished.output;
}

}  // namespace treectl
