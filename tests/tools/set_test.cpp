#include "tests/tools/treectl_fixture.h"

namespace treectl {
namespace {

using Set = TreectlTest;

TEST_F(Set, StoresInOrderAndPrintsNothing) {
  expect({{"set", "/{S}/drive/speed", "-7", "{S}/drive/gains[i]", "2.5"}});
  expect({{"get", "/{S}/drive/speed", "/{S}/drive/gains"},
          0,
          "/{S}/drive/speed\t-7\n/{S}/drive/gains\t1.5 2.5\n"});
  expect({{"set", "/{S}/drive/label", "--stop"}});
  expect({{"get", "/{S}/drive/label"}, 0, "--stop\n"});
  expect({{"set", "-s", "{S}", "--", "drive/label", "--stdin"}});
  expect({{"get", "/{S}/drive/label"}, 0, "--stdin\n"});
}

TEST_F(Set, StoresTextsExactly) {
  for (const std::string text : {"", " ", "3\nabc", "0\n", "2\nabc", "a\nb", "\xff\x01", "12"}) {
    expect({{"set", "/{S}/drive/label", text}});
    expect({{"get", "--raw", "/{S}/drive/label"}, 0, text});
    expect({{"set", "/{S}/drive/label", "--stdin"}, 0, "", "", text + "\n"});
    expect({{"get", "--raw", "/{S}/drive/label"}, 0, text});
  }
  expect({{"set", "/{S}/drive/label", "--stdin"}, 0, "", "", std::string("a\0b", 3)});
  expect({{"get", "--raw", "/{S}/drive/label"}, 0, std::string("a\0b", 3)});
}

TEST_F(Set, StoresAWholeArray) {
  expect({{"set", "--array", "/{S}/drive/gains", "3", "-4"}});
  expect({{"get", "/{S}/drive/gains"}, 0, "3 -4\n"});
  expect({{"set", "--array", "/{S}/notes", "a\nb\n", "2\nx"}});
  expect({{"get", "/{S}/notes"}, 0, "a\\nb\\n 2\\nx\n"});
  expect({{"set", "--array", "/{S}/notes", "1", "2"}});
  expect({{"get", "/{S}/notes"}, 0, "1 2\n"});
}

TEST_F(Set, RejectsAWrongNumberOfElements) {
  expect({{"set", "--array", "/{S}/drive/gains", "3"},
          2,
          "",
          "treectl: /{S}/drive/gains: expected 2 values, got 1\n"});
  expect({{"set", "--array", "/{S}/drive/speed", "3"},
          3,
          "",
          "treectl: /{S}/drive/speed: not an array\n"});
  expect({{"get", "/{S}/drive/gains"}, 0, "1.5 0.25\n"});
}

TEST_F(Set, GivesTheReasonOfEachRefusalAndStoresTheRest) {
  expect({{"set", "/{S}/settings/setpoint", "99", "/{S}/drive/serial", "x", "/{S}/drive/offset",
           "1", "/{S}/settings/mode", "warp", "/{S}/drive/speed", "x", "/{S}/drive/raw[0]", "256",
           "/{S}/drive/label", "stored"},
          5,
          "",
          "treectl: /{S}/settings/setpoint: 99 is not within 5 to 30\n"
          "treectl: /{S}/drive/serial: the part is read-only\n"
          "treectl: /{S}/drive/offset: the part is protected\n"
          "treectl: /{S}/settings/mode: \"warp\" is not one of off, slow, fast\n"
          "treectl: /{S}/drive/speed: the text is no value of the part's type\n"
          "treectl: /{S}/drive/raw[0]: the value is out of the range of the part's type\n"});
  expect({{"get", "/{S}/drive/label"}, 0, "stored\n"});
  expect({{"set", "--protected", "/{S}/drive/offset", "1"}});
  expect({{"get", "/{S}/drive/offset"}, 0, "1\n"});
}

TEST_F(Set, EndsAtTheFirstRefusalIfWanted) {
  expect({{"set", "--stop", "/{S}/drive/speed", "1", "/{S}/drive/serial", "x", "/{S}/drive/speed",
           "2"},
          5,
          "",
          "treectl: /{S}/drive/serial: the part is read-only\n"});
  expect({{"get", "/{S}/drive/speed"}, 0, "1\n"});
  expect({{"set", "--stop", "/{S}/drive/none", "x", "/{S}/drive/speed", "2"},
          3,
          "",
          "treectl: /{S}/drive/none: part drive/none: no such part\n"});
  expect({{"get", "/{S}/drive/speed"}, 0, "1\n"});
}

TEST_F(Set, DoesNothingAfterAWrongArgument) {
  expect({{"set", "/{S}/drive/speed", "1", "", "2"},
          2,
          "",
          "treectl: \"\": expected an address that begins with a server's name\n"});
  expect({{"set", "/{S}/drive/speed", "1", "/{S}/drive/l*", "2"},
          2,
          "",
          "treectl: /{S}/drive/l*: no wildcards in an address of set\n"});
  expect({{"get", "/{S}/drive/speed"}, 0, "42\n"});
}

TEST_F(Set, HasTheStatusOfTheFirstFailure) {
  expect({{"set", "/{S}/empty", "1", "/{S}/drive/serial", "x"},
          3,
          "",
          "treectl: /{S}/empty: a node has no value\n"
          "treectl: /{S}/drive/serial: the part is read-only\n"});
  expect({{"set", "-q", "/{S}/drive/serial", "x", "/{S}/empty", "1"}, 5});
}

TEST_F(Set, TimesOutBeforeAnythingIsStored) {
  server().hang();
  expect({{"set", "--timeout", "0.1", "/{S}/drive/speed", "1"},
          6,
          "",
          "treectl: /{S}/drive/speed: the server does not answer\n"});
  server().resume();
}

}  // namespace
}  // namespace treectl
