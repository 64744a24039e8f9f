#include <signal.h>

#include "tests/support/port_name.h"
#include "tests/tools/treectl_fixture.h"

namespace treectl {
namespace {

using Read = TreectlTest;
using test_support::ExitStatus;

TEST_F(Read, GetPrintsTheValueOfOnePart) {
  expect({{"get", "/{S}/drive/speed"}, 0, "42\n"});
  expect({{"get", "{S}/drive/speed"}, 0, "42\n"});
  expect({{"get", "-s", "{S}", "/drive/speed"}, 0, "42\n"});
  expect({{"get", "-s", "{S}", "drive/gains"}, 0, "1.5 0.25\n"});
  expect({{"get", "/{S}/drive/gains[1]"}, 0, "0.25\n"});
  expect({{"get", "/{S}/drive/gains[p]"}, 0, "1.5\n"});
  expect({{"get", "/{S}/drive/#12"}, 0, "7\n"});
  expect({{"get", "/{S}/drive/#13"}, 0, "99\n"});
  expect({{"get", "/{S}/\\#5"}, 0, "5\n"});
  expect({{"get", "/{S}/#5"}, 0, "5\n"});
  expect({{"get", "/{S}/line\\x0afeed"}, 0, "6\n"});
  expect({{"get", "/{S}/settings/big"}, 0, "18446744073709551615\n"});
  expect({{"get", "/{S}/a\\/b\\*c\\?\\[d]\\\\e"}, 0, "tab\\there\\nback\\\\slash \\x01\n"});
  expect({{"get", "/{S}/notes"}, 0, "one\\ntwo x\n"});
}

TEST_F(Read, GetOfSeveralNamesEach) {
  expect({{"get", "/{S}/drive/gains[i]", "/{S}/drive/speed", "{S}/drive/raw"},
          0,
          "/{S}/drive/gains[1]\t0.25\n/{S}/drive/speed\t42\n/{S}/drive/raw\t1 2 3\n"});
  expect({{"get", "/{S}/drive/spee?"}, 0, "/{S}/drive/speed\t42\n/{S}/drive/#13\t99\n"});
  expect({{"get", "/{S}/drive/raw[*]"},
          0,
          "/{S}/drive/raw[0]\t1\n/{S}/drive/raw[1]\t2\n/{S}/drive/raw[2]\t3\n"});
  expect({{"-s", "{S}", "get", "/**/g*s"}, 0, "/drive/gains\t1.5 0.25\n"});
  expect({{"get", "/{S}/**/#12"}, 0, "/{S}/drive/#12\t7\n"});
  expect({{"get", "/{S}/*"},
          0,
          "/{S}/a\\/b\\*c\\?\\[d\\]\\\\e\ttab\\there\\nback\\\\slash \\x01\n/{S}/\\#5\t5\n"
          "/{S}/line\\x0afeed\t6\n/{S}/notes\tone\\ntwo x\n"});
}

TEST_F(Read, GetWritesTheBytesThemselvesIfWanted) {
  expect({{"get", "--raw", "/{S}/a\\/b\\*c\\?\\[d]\\\\e"}, 0, "tab\there\nback\\slash \x01"});
  expect({{"get", "--raw", "/{S}/*"},
          2,
          "",
          "treectl: --raw: expected one address without wildcards\n"});
}

TEST_F(Read, GetPrintsJsonWithExactNumbers) {
  expect({{"get", "--json", "/{S}/drive/speed"},
          0,
          "{\"address\":\"/{S}/drive/speed\",\"type\":\"int32\",\"access\":\"rw\","
          "\"unit\":\"rpm\",\"value\":42}\n"});
  expect({{"get", "--json", "/{S}/drive/gains[i]", "/{S}/drive/gains", "/{S}/drive/secret"},
          0,
          "{\"address\":\"/{S}/drive/gains[1]\",\"type\":\"double\",\"element\":\"i\","
          "\"access\":\"rw\",\"unit\":\"\",\"value\":0.25}\n"
          "{\"address\":\"/{S}/drive/gains\",\"type\":\"double\",\"access\":\"rw\",\"unit\":\"\","
          "\"value\":[1.5,0.25]}\n"
          "{\"address\":\"/{S}/drive/secret\",\"type\":\"bool\",\"access\":\"rw\",\"unit\":\"\","
          "\"value\":false}\n"});
  expect({{"get", "--json", "/{S}/settings/big", "/{S}/settings/low"},
          0,
          "{\"address\":\"/{S}/settings/big\",\"type\":\"uint64\",\"access\":\"rw\",\"unit\":\"\","
          "\"value\":18446744073709551615}\n"
          "{\"address\":\"/{S}/settings/low\",\"type\":\"int64\",\"access\":\"rw\",\"unit\":\"\","
          "\"value\":-9223372036854775808}\n"});
  expect({{"get", "--json", "/{S}/notes"},
          0,
          "{\"address\":\"/{S}/notes\",\"type\":\"text\",\"access\":\"rw\",\"unit\":\"\","
          "\"value\":[\"one\\ntwo\",\"x\"]}\n"});
  expect({{"set", "/{S}/drive/label", "\xff"}});
  expect({{"get", "--json", "/{S}/drive/label"},
          0,
          "{\"address\":\"/{S}/drive/label\",\"type\":\"text\",\"access\":\"rw\",\"unit\":\"\","
          "\"value_base64\":\"/w==\"}\n"});
  expect({{"set", "--protected", "/{S}/drive/offset", "-inf"}});
  expect({{"get", "--json", "/{S}/drive/offset"},
          0,
          "{\"address\":\"/{S}/drive/offset\",\"type\":\"float\",\"access\":\"protected\","
          "\"unit\":\"\",\"value\":\"-inf\"}\n"});
}

TEST_F(Read, ListPrintsWhatIsBelow) {
  expect({{"list", "/{S}"},
          0,
          "/{S}/drive/\n/{S}/empty/\n/{S}/settings/\n/{S}/a\\/b\\*c\\?\\[d\\]\\\\e\n/{S}/\\#5\n"
          "/{S}/line\\x0afeed\n/{S}/notes\n"});
  expect({{"list", "/{S}/drive/speed"}, 0, "/{S}/drive/speed\n"});
  expect({{"list", "/{S}/empty"}});
  expect({{"list", "/{S}/drive/gains[p]"}, 0, "/{S}/drive/gains[0]\n"});
  expect({{"list", "-l", "-s", "{S}", "/settings/"},
          0,
          "/settings/setpoint\tint32\trw\t10\n/settings/mode\ttext\trw\toff\n"
          "/settings/big\tuint64\trw\t18446744073709551615\n"
          "/settings/low\tint64\trw\t-9223372036854775808\n/settings/ratio\tdouble\trw\t0.1\n"});
  expect({{"list", "/{S}/e*", "/{S}/*/se*"},
          0,
          "/{S}/drive/serial\n/{S}/drive/secret\n"
          "/{S}/settings/setpoint\n"});
}

TEST_F(Read, ListGoesDownInTheServersOrder) {
  expect({{"list", "-r", "/{S}"},
          0,
          "/{S}/drive/\n/{S}/drive/speed\n/{S}/drive/label\n/{S}/drive/gains\n/{S}/drive/raw\n"
          "/{S}/drive/serial\n/{S}/drive/offset\n/{S}/drive/secret\n/{S}/drive/#12\n"
          "/{S}/drive/#13\n/{S}/empty/\n/{S}/settings/\n/{S}/settings/setpoint\n"
          "/{S}/settings/mode\n/{S}/settings/big\n/{S}/settings/low\n/{S}/settings/ratio\n"
          "/{S}/a\\/b\\*c\\?\\[d\\]\\\\e\n/{S}/\\#5\n/{S}/line\\x0afeed\n/{S}/notes\n"});
  // Each entry once, whatever matches.
  expect({{"list", "/{S}/empty/**", "/{S}/dr**/spee*"}, 0, "/{S}/drive/speed\n/{S}/drive/#13\n"});
}

TEST_F(Read, ListedAddressesCanBeTypedAgain) {
  std::istringstream lines(output({"list", "-r", "/{S}"}));
  for (std::string line; std::getline(lines, line);) {
    EXPECT_EQ(runTreectl({"list", line}).status, ExitStatus{}) << line;
    if (!line.ends_with('/')) {
      EXPECT_EQ(runTreectl({"get", line}).status, ExitStatus{}) << line;
    }
  }
}

TEST_F(Read, ListPrintsJson) {
  expect({{"list", "--json", "/{S}/settings", "/{S}/e*y"},
          0,
          "{\"address\":\"/{S}/settings/setpoint\"}\n{\"address\":\"/{S}/settings/mode\"}\n"
          "{\"address\":\"/{S}/settings/big\"}\n{\"address\":\"/{S}/settings/low\"}\n"
          "{\"address\":\"/{S}/settings/ratio\"}\n"});
  expect({{"list", "--json", "-l", "-s", "{S}", "/drive/raw"},
          0,
          "{\"address\":\"/drive/raw\",\"type\":\"uint8\",\"access\":\"rw\",\"unit\":\"\","
          "\"value\":[1,2,3]}\n"});
}

TEST_F(Read, ListIsColouredIfWanted) {
  EXPECT_THAT(output({"list", "--color=always", "/{S}"}),
              testing::HasSubstr("\x1B[1;34m/" + server().name() + "/drive\x1B[0m/\n"));
}

TEST_F(Read, DescribePrintsWhatAPartIs) {
  expect({{"describe", "/{S}/settings/setpoint"},
          0,
          "type: int32\naccess: rw\nsubscribable: true\nlimits: 5 to 30\ntext: the target\n"});
  expect({{"describe", "/{S}/drive/gains", "/{S}/empty"},
          0,
          "address: /{S}/drive/gains\ntype: double\naccess: rw\nsubscribable: true\n"
          "elements: 2 (p, i)\n\naddress: /{S}/empty\ntype: node\n"});
  expect({{"describe", "/{S}/drive/secret"}, 0, "type: bool\naccess: rw\nsubscribable: false\n"});
  expect({{"describe", "/{S}/settings/mode"},
          0,
          "type: text\naccess: rw\nsubscribable: true\nchoices: off, slow, fast\n"});
  expect({{"describe", "--json", "/{S}/settings/setpoint"},
          0,
          "{\"address\":\"/{S}/settings/setpoint\",\"type\":\"int32\",\"access\":\"rw\","
          "\"unit\":\"\",\"subscribable\":true,\"minimum\":5,\"maximum\":30,"
          "\"text\":\"the target\"}\n"});
}

TEST_F(Read, ServersSaysTheStateOfEach) {
  const std::string name = server().name();
  EXPECT_THAT(output({"servers"}), testing::HasSubstr(name + "\tup\n"));
  EXPECT_THAT(output({"servers", "--json", "--wait", name}),
              testing::HasSubstr("{\"server\":\"" + name + "\",\"state\":\"up\"}\n"));
  server().hang();
  EXPECT_THAT(output({"servers", "--timeout", "0.1"}), testing::HasSubstr(name + "\thung\n"));
  server().resume();
  server().kill();
  EXPECT_THAT(output({"servers"}), testing::HasSubstr(name + "\tdead\n"));
  server().restart();
  EXPECT_THAT(output({"servers", "--wait", name}), testing::HasSubstr(name + "\tup\n"));
}

TEST_F(Read, ServersWaitsUntilOneIsUp) {
  const std::string name = test_support::uniquePortName();
  test_support::Process waiting({treectlProgram(), "servers", "--wait", name, "--timeout", "40"});
  test_support::Process started(
      {test_support::modelsrvdProgram(), "--synthetic", "1x1", "--name", name});
  EXPECT_TRUE(waiting.waitForLine(name + "\tup"));
  EXPECT_EQ(waiting.finish(), ExitStatus{});
  started.signal(SIGTERM);
  EXPECT_EQ(started.waitForExit(), ExitStatus{});
  EXPECT_EQ(runTreectl({"servers", "--wait", name, "--timeout", "0.1"}).errors,
            "treectl: " + name + ": not up in time\n");
}

}  // namespace
}  // namespace treectl
