#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>

#include "tests/support/model_server.h"
#include "tests/support/port_name.h"
#include "tests/support/process.h"
#include "tests/support/scratch_directory.h"

// Whole sessions: the built shell against the built server.

namespace {

using test_support::ExitStatus;
using test_support::Finished;
using test_support::ModelServer;
using test_support::run;

/// The output of `treescope` with `arguments`, which must end with status 0 and print no
/// errors.
std::string outputOf(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), test_support::treescopeProgram());
  const Finished result = run(arguments);
  EXPECT_EQ(result.status, (ExitStatus{0, 0}));
  EXPECT_EQ(result.errors, "");
  return result.output;
}

class Session : public testing::Test {
 protected:
  std::string commands(const std::string& line) {
    return outputOf({"-c", "cd " + fixture_.name() + ";" + line});
  }

  ModelServer fixture_;
};

struct SessionCase {
  const char* name;
  const char* line;
  const char* output;
};

class SessionLine : public Session, public testing::WithParamInterface<SessionCase> {};

TEST_P(SessionLine, WritesTheseBytes) {
  EXPECT_EQ(commands(GetParam().line), GetParam().output);
}

INSTANTIATE_TEST_SUITE_P(
    Reading, SessionLine,
    testing::Values(
        SessionCase{"Number", "get /drive/speed", "/drive/speed    [42]\n"},
        SessionCase{"Text", "get /drive/label", "/drive/label    [two words]\n"},
        SessionCase{"WholeArray", "get /drive/gains", "/drive/gains    [1.5 0.25]\n"},
        SessionCase{"ElementByIndex", "get /drive/gains[1]", "/drive/gains[1] [0.25]\n"},
        SessionCase{"ElementByName", "cd /drive/gains;get i", "/drive/gains[1] [0.25]\n"},
        SessionCase{"UnnamedChild", "get /drive/noname-12", "/drive/noname-12    [7]\n"},
        SessionCase{"PartBelowTheCurrentNode", "cd drive;get speed", "/drive/speed    [42]\n"},
        SessionCase{"NothingForANode", "get /drive", ""},
        SessionCase{"NothingForNoPart", "get /nowhere", ""}),
    [](const auto& test) { return test.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Writing, SessionLine,
    testing::Values(
        SessionCase{"Number", "set 43 /drive/speed;get /drive/speed",
                    "/drive/speed    [43]\n/drive/speed    [43]\n"},
        SessionCase{"TextWithSpaces", "str \"on the bench\" /drive/label",
                    "/drive/label    [on the bench]\n"},
        SessionCase{"TextWithADash", "str -r /drive/label", "/drive/label    [-r]\n"},
        SessionCase{"OneElement", "set 0.5 /drive/gains[1];get /drive/gains",
                    "/drive/gains[1] [0.5]\n/drive/gains    [1.5 0.5]\n"},
        SessionCase{"AWholeArrayIsAnError", "set 1 /drive/gains", "ERROR: NotFound\n"},
        SessionCase{"AReadOnlyPartKeepsItsValue", "str B-18 /drive/serial",
                    "/drive/serial   [A-17]\n"},
        SessionCase{"LettersAreNoNumber", "set fast /drive/speed", "/drive/speed    [42]\n"},
        SessionCase{"ProtectedPartKeepsItsValue", "set 1 /drive/offset", "/drive/offset   [0]\n"},
        SessionCase{"ProtectedPartWithTheLoadersFlag", "set -l 1 /drive/offset",
                    "/drive/offset   [1]\n"}),
    [](const auto& test) { return test.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Ending, SessionLine,
    testing::Values(SessionCase{"ExitEndsTheLine", "exit;get /drive/speed", ""},
                    SessionCase{"AnErrorEndsTheLine", "cd;cd Model_nowhere_at_all;pwd",
                                "ERROR: ConnectError\n"},
                    SessionCase{"ASettingWithoutValueIsAnError", "set;get /drive/speed",
                                "ERROR: OptionError\n"}),
    [](const auto& test) { return test.param.name; });

TEST_F(Session, TheForceSwitchStoresProtectedParts) {
  EXPECT_EQ(outputOf({"-a", "-c", "cd " + fixture_.name() + ";set 2 /drive/offset"}),
            "/drive/offset   [2]\n");
}

TEST_F(Session, AStoreIsSeenByTheNextSession) {
  EXPECT_EQ(commands("set 77 /drive/speed"), "/drive/speed    [77]\n");
  EXPECT_EQ(commands("get /drive/speed"), "/drive/speed    [77]\n");
}

TEST_F(Session, ACommandFileRunsLineByLine) {
  const std::string file = "/tmp/" + test_support::uniquePortName("commands_");
  std::ofstream(file) << "cd " << fixture_.name() << "\nget /drive/speed\nget /drive/label\n";
  EXPECT_EQ(outputOf({"-f", file}), "/drive/speed    [42]\n/drive/label    [two words]\n");
  EXPECT_EQ(::unlink(file.c_str()), 0);
}

TEST(SessionString, KeepsItsQuotes) {
  EXPECT_EQ(outputOf({"-c", "\"pwd\""}), "/\n");
}

// The next two also hold if the shell and the server are programs of different machines
// (script/test armhf).

TEST_F(Session, TheShellMapsTheStatusPageOfTheServer) {
  const Finished result =
      run({test_support::treescopeProgram(), "-c",
           "cd " + fixture_.name() + ";ls -r;$grep -c memfd:krv /proc/$PPID/maps >&2"});
  EXPECT_EQ(result.status, (ExitStatus{0, 0}));
  EXPECT_EQ(result.errors, "1\n");
}

TEST_F(Session, CachedValuesEndWithAChangeByAnotherShell) {
  const std::string shell = test_support::treescopeProgram();
  const test_support::TemporaryFile change("cd " + fixture_.name() + "\nset 43 /drive/speed\n");
  const Finished result = run({shell, "-c",
                               "cd " + fixture_.name() + ";cd drive;ls -l speed;$" + shell +
                                   " -f " + change.path() + ";ls -l speed;get speed"});
  EXPECT_EQ(result.status, (ExitStatus{0, 0}));
  EXPECT_EQ(result.output,
            "speed    [42]\n/drive/speed    [43]\nspeed    [43]\n/drive/speed    [43]\n");
}

class SwitchesThatPrintNothing : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(SwitchesThatPrintNothing, EndWithoutOutput) {
  EXPECT_EQ(outputOf(GetParam()), "");
}

INSTANTIATE_TEST_SUITE_P(
    All, SwitchesThatPrintNothing,
    testing::Values(std::vector<std::string>{"-h"}, std::vector<std::string>{"--help"},
                    std::vector<std::string>{"-ah"}, std::vector<std::string>{"-f", "/missing"},
                    std::vector<std::string>{"-c", "exit"}, std::vector<std::string>{"-c", ""}));

TEST(SessionWithoutInput, EndsWhenStandardInputIsClosedFromTheStart) {
  const Finished result = run({"sh", "-c", "exec \"$0\" <&-", test_support::treescopeProgram()});
  EXPECT_EQ(result.status, (ExitStatus{0, 0}));
  EXPECT_THAT(result.output, testing::EndsWith("\n"));
}

TEST(SessionWithoutInput, DoesNotReuseClosedStandardDescriptorsForOtherFiles) {
  const std::string line = "$readlink /proc/$PPID/fd/0 /proc/$PPID/fd/1 >&2";
  const Finished result =
      run({"sh", "-c", "exec \"$0\" -c \"$1\" <&- >&-", test_support::treescopeProgram(), line});
  EXPECT_EQ(result.status, (ExitStatus{0, 0}));
  EXPECT_EQ(result.errors, "/dev/null\n/dev/null\n");
}

TEST(SessionWithoutServer, ReadsAndStoresPrintNothing) {
  EXPECT_EQ(outputOf({"-c", "get /drive/speed;set 1 /drive/speed;pwd"}), "/\n");
}

}  // namespace
