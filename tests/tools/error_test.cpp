#include <signal.h>
#include <unistd.h>

#include <regex>

#include "tests/support/port_name.h"
#include "tests/tools/treectl_fixture.h"
#include "tools/nearest.h"
#include "tools/status.h"

namespace treectl {
namespace {

using Errors = TreectlTest;
using test_support::ExitStatus;
using test_support::Finished;

TEST_F(Errors, SayWhatIsMissingAndWhatIsNearest) {
  expect({{"get", "/{S}/drive/spede"},
          3,
          "",
          "treectl: /{S}/drive/spede: part drive/spede: no such part (nearest: speed)\n"});
  expect({{"get", "/{S}/drvie/speed/x"},
          3,
          "",
          "treectl: /{S}/drvie/speed/x: part drvie: no such part (nearest: drive)\n"});
  expect(
      {{"get", "/{S}/qqqqqqqq"}, 3, "", "treectl: /{S}/qqqqqqqq: part qqqqqqqq: no such part\n"});
  expect({{"get", "/{S}/drive/#99"},
          3,
          "",
          "treectl: /{S}/drive/#99: part drive/#99: no such part\n"});
  expect({{"get", "/{S}/drive/gains[d]"},
          3,
          "",
          "treectl: /{S}/drive/gains[d]: no such element (there are 2, from 0)\n"});
  expect({{"get", "/{S}/drive/gains[2]"},
          3,
          "",
          "treectl: /{S}/drive/gains[2]: no such element (there are 2, from 0)\n"});
  expect({{"get", "/{S}/drive/speed[0]"},
          3,
          "",
          "treectl: /{S}/drive/speed[0]: no such element (not an array)\n"});
  expect({{"get", "/{S}/drive"}, 3, "", "treectl: /{S}/drive: a node has no value\n"});
  expect({{"get", "/{S}"}, 3, "", "treectl: /{S}: a node has no value\n"});
  expect({{"get", "-s", "{S}", "/"}, 3, "", "treectl: /: a node has no value\n"});
}

TEST_F(Errors, OfWildcardsAreThatNothingMatches) {
  for (const char* const command : {"get", "list", "describe", "dump"}) {
    expect({{command, "/{S}/drive/q*"}, 3, "", "treectl: /{S}/drive/q*: nothing matches\n"});
  }
  // Wildcards stand for parts.
  expect({{"get", "/{S}/driv?"}, 3, "", "treectl: /{S}/driv?: nothing matches\n"});
  expect({{"dump", "/{S}/driv?"}, 3, "", "treectl: /{S}/driv?: nothing matches\n"});
  expect(
      {{"get", "/{S}/drive/speed[*]"}, 3, "", "treectl: /{S}/drive/speed[*]: nothing matches\n"});
  expect({{"get", "/Model_qq*/x"}, 3, "", "treectl: /Model_qq*/x: nothing matches\n"});
}

TEST_F(Errors, DoNotEndTheRest) {
  expect({{"get", "/{S}/none", "/{S}/drive/speed", "/{S}/drive"},
          3,
          "/{S}/drive/speed\t42\n",
          "treectl: /{S}/none: part none: no such part (nearest: notes)\n"
          "treectl: /{S}/drive: a node has no value\n"});
  expect({{"get", "--json", "-q", "/{S}/none", "/{S}/drive"}, 3});
}

TEST_F(Errors, OfServersNameThoseThatThereAre) {
  // The nearest one is named however many there are.
  const std::string wanted = server().name() + "_";
  const Finished finished = runTreectl({"get", '/' + wanted + "/x"});
  EXPECT_EQ(finished.status, (ExitStatus{4, 0}));
  EXPECT_TRUE(std::regex_match(finished.errors,
                               std::regex("treectl: /" + wanted + "/x: no server " + wanted +
                                          " \\(there are: .*" + server().name() + ".*\\)\n")))
      << finished.errors;
  server().kill();
  EXPECT_EQ(runTreectl({"get", "/" + server().name() + "/x"}).status, (ExitStatus{4, 0}));
  server().restart();
  for (const char* const name : {"/.x/y", "/a;b/y", "/a\\/b/y"}) {
    EXPECT_EQ(runTreectl({"get", name}).status, (ExitStatus{4, 0})) << name;
  }
}

TEST(OtherServers, AreAtMostEight) {
  EXPECT_EQ(otherServers("Model_x", {}), "there is none");
  EXPECT_EQ(otherServers("Model_x", {"Model_x"}), "there is none");
  EXPECT_EQ(otherServers("Model_x", {"Model_a", "Model_x", "Model_y"}),
            "there are: Model_a, Model_y");
  std::vector<std::string> names;
  for (char name = 'a'; name <= 'h'; ++name) {
    names.push_back(std::string("Model_") + name);
  }
  EXPECT_EQ(otherServers("Model_drive", names),
            "there are: Model_a, Model_b, Model_c, Model_d, Model_e, Model_f, Model_g, Model_h");
  for (int i = 100; i < 393; ++i) {
    names.push_back("Model_pump_" + std::to_string(i));
  }
  EXPECT_EQ(otherServers("Model_pmup_217", names),
            "there are: Model_pump_217, Model_pump_117, Model_pump_207, Model_pump_210, "
            "Model_pump_211, Model_pump_212, Model_pump_213, Model_pump_214, and 293 more");
}

TEST_F(Errors, OfAHungServerAreTimeouts) {
  server().hang();
  expect({{"get", "--timeout", "0.1", "/{S}/drive/speed", "/{S}/drive/label"},
          6,
          "",
          "treectl: /{S}/drive/speed: the server does not answer\n"
          "treectl: /{S}/drive/label: the server does not answer\n"});
  server().resume();
  expect({{"get", "--timeout", "30", "/{S}/drive/speed"}, 0, "42\n"});
  // A server has a moment even then, which is enough unless the machine is busy.
  EXPECT_TRUE(test_support::eventually([&] {
    return runTreectl({"get", "--timeout", "0", filled("/{S}/drive/speed")}).output == "42\n";
  }));
}

TEST_F(Errors, OfOutputHaveAStatusOfTheirOwn) {
  const std::string get = treectlProgram() + " get /" + server().name() + "/drive/speed";
  const Finished full = test_support::run({"/bin/sh", "-c", get + " >/dev/full"});
  EXPECT_EQ(full.status, (ExitStatus{9, 0}));
  EXPECT_EQ(full.errors, "treectl: standard output: No space left on device\n");
  const Finished closed = test_support::run({"/bin/sh", "-c", get + " >&-"});
  EXPECT_EQ(closed.status, (ExitStatus{9, 0}));
  EXPECT_EQ(closed.errors, "treectl: standard output: Bad file descriptor\n");
  // By the signal, silently, also if the parent ignored it.
  const Finished pipe = test_support::run(
      {"/bin/bash", "-c", "trap '' PIPE; { " + get + "; echo $? >&2; } | exec true"});
  EXPECT_EQ(pipe.errors, "141\n");
}

TEST(ErrorStatus, OfAStoreWithoutAReplyIsThatItsOutcomeIsUnknown) {
  for (const ModelSrv::ModelRes result :
       {ModelSrv::ModelRes_Timeout, ModelSrv::ModelRes_OutcomeUnknown,
        ModelSrv::ModelRes_Protocol}) {
    EXPECT_EQ(statusOf(result, RequestKind::store), Status::outcomeUnknown);
  }
  EXPECT_EQ(statusOf(ModelSrv::ModelRes_Timeout), Status::timeout);
  EXPECT_EQ(statusOf(ModelSrv::ModelRes_Protocol), Status::noServer);
  EXPECT_EQ(statusOf(ModelSrv::ModelRes_Unreachable), Status::noServer);
  EXPECT_EQ(statusOf(ModelSrv::ModelRes_Denied, RequestKind::store), Status::notPermitted);
  EXPECT_EQ(statusOf(ModelSrv::ModelRes_Vetoed), Status::refused);
  EXPECT_EQ(statusOf(ModelSrv::ModelRes_DoNothing, RequestKind::store), Status::refused);
  EXPECT_EQ(statusOf(ModelSrv::ModelRes_DoNothing), Status::notFound);
  EXPECT_EQ(statusOf(ModelSrv::ModelRes_SystemError), Status::ioError);
}

TEST(ErrorsOfOtherUsers, AreDenied) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can run a program as another user";
  }
  test_support::ModelServer server;
  const Finished finished =
      test_support::run({"setpriv", "--reuid=65534", "--clear-groups", "--regid=65534",
                         treectlProgram(), "get", "/" + server.name() + "/drive/speed"});
  EXPECT_EQ(finished.status, (ExitStatus{7, 0}));
  EXPECT_EQ(finished.errors, "treectl: /" + server.name() +
                                 "/drive/speed: the port's pipe belongs to another user, or is "
                                 "not a pipe with one link\n");
}

}  // namespace
}  // namespace treectl
