#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "servers/options.h"
#include "tests/support/model_server.h"
#include "tests/support/port_name.h"
#include "tests/support/process.h"
#include "tests/support/tree_client.h"

namespace modelsrvd {
namespace {

using test_support::ExitStatus;
using test_support::Finished;
using test_support::mailboxPath;
using test_support::uniquePortName;
using testing::ElementsAre;
using testing::StartsWith;

TEST(Modelsrvd, PrintsItsUsageAndItsVersion) {
  const Finished help = test_support::runModelsrvd({"--help"});
  EXPECT_EQ(help.status, ExitStatus{});
  EXPECT_EQ(help.output, usageText());
  EXPECT_EQ(help.errors, "");
  const Finished version = test_support::runModelsrvd({"--version"});
  EXPECT_EQ(version.status, ExitStatus{});
  EXPECT_THAT(version.output, testing::MatchesRegex("modelsrvd [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(Modelsrvd, RemovesItsMailboxOnEitherSignal) {
  for (const int signal : {SIGINT, SIGTERM}) {
    test_support::ModelServer server({"--synthetic", "1x1"});
    EXPECT_TRUE(std::filesystem::exists(mailboxPath(server.name())));
    EXPECT_TRUE(server.stops(signal)) << server.process().errors();
    EXPECT_FALSE(std::filesystem::exists(mailboxPath(server.name())));
  }
}

TEST(Modelsrvd, StopsImmediatelyWhileAClientIsConnected) {
  test_support::ModelServer server({"--synthetic", "1x1"});
  test_support::TreeClient client(server.name());
  ASSERT_EQ(client.connected(), ModelSrv::ModelRes_Success);
  EXPECT_TRUE(server.stops(SIGTERM)) << server.process().errors();
  EXPECT_THAT(client.get("/group_000"), StartsWith("<"));
}

TEST(Modelsrvd, DoesNotServeANameInUse) {
  test_support::ModelServer server({"--synthetic", "1x1"});
  const Finished second = test_support::runModelsrvd({"--name", server.name()});
  EXPECT_EQ(second.status, (ExitStatus{1, 0}));
  EXPECT_EQ(second.output, "");
  EXPECT_EQ(second.errors, "modelsrvd: --name: " + server.name() + ": " +
                               ModelSrv::describe(ModelSrv::ModelRes_NameInUse) + "\n");
  test_support::TreeClient client(server.name());
  EXPECT_EQ(client.connected(), ModelSrv::ModelRes_Success);
}

TEST(Modelsrvd, SaysThatItsMailboxMustBeAPipeWithOneLink) {
  const std::string name = uniquePortName();
  const std::string expected = "modelsrvd: --name: " + name +
                               ": the port's pipe belongs to another user, or is not a pipe with "
                               "one link\n";
  ASSERT_EQ(::mkdir(mailboxPath(name).c_str(), 0700), 0);
  const Finished finished = test_support::runModelsrvd({"--name", name});
  EXPECT_EQ(finished.status, (ExitStatus{1, 0}));
  EXPECT_EQ(finished.errors, expected);
  EXPECT_EQ(::rmdir(mailboxPath(name).c_str()), 0);
}

TEST(Modelsrvd, SaysThatItIsNoMemberOfTheGroup) {
  const std::string name = uniquePortName();
  std::vector<std::string> command{
      test_support::modelsrvdProgram(), "--name", name, "--synthetic", "1x1", "--group", "7000"};
  if (::geteuid() == 0) {  // Root may give the pipe to any group.
    command.insert(command.begin(),
                   {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
  }
  const Finished finished = test_support::run(command);
  EXPECT_EQ(finished.status, (ExitStatus{2, 0}));
  EXPECT_EQ(finished.errors, "modelsrvd: --group: this user is not a member of \"7000\"\n");
  EXPECT_FALSE(std::filesystem::exists(mailboxPath(name)));
}

TEST(Modelsrvd, TakesOverTheMailboxOfAKilledServer) {
  const std::string name = uniquePortName();
  const std::vector<std::string> command{test_support::modelsrvdProgram(), "--name", name};
  {
    test_support::Process killed(command);
    ASSERT_EQ(killed.readLine(), "ready " + name);
    killed.signal(SIGKILL);
    ASSERT_EQ(killed.waitForExit(), (ExitStatus{0, SIGKILL}));
  }
  EXPECT_TRUE(std::filesystem::exists(mailboxPath(name)));
  test_support::Process next(command);
  EXPECT_EQ(next.readLine(), "ready " + name);
  next.signal(SIGTERM);
  EXPECT_EQ(next.waitForExit(), ExitStatus{});
}

TEST(Modelsrvd, IsPrivateToItsUserUnlessAGroupIsNamed) {
  struct stat status {};
  test_support::ModelServer unshared({"--synthetic", "1x1"});
  ASSERT_EQ(::stat(mailboxPath(unshared.name()).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  const std::string group = std::to_string(::getegid());
  test_support::ModelServer shared({"--synthetic", "1x1", "--group", group});
  ASSERT_EQ(::stat(mailboxPath(shared.name()).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0620U);
  EXPECT_EQ(status.st_gid, ::getegid());
  test_support::TreeClient client(shared.name());
  EXPECT_EQ(client.connected(), ModelSrv::ModelRes_Success);
}

struct InvalidStartCase {
  const char* what;
  std::vector<std::string> args;
  const char* line;
};

class InvalidStart : public testing::TestWithParam<InvalidStartCase> {};

TEST_P(InvalidStart, IsReportedInOneLineWithItsOrigin) {
  const Finished finished = test_support::runModelsrvd(GetParam().args);
  EXPECT_EQ(finished.status, (ExitStatus{2, 0}));
  EXPECT_EQ(finished.output, "");
  EXPECT_EQ(finished.errors, std::string("modelsrvd: ") + GetParam().line + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Table, InvalidStart,
    testing::Values(
        InvalidStartCase{
            "UnknownOption", {"--frob"}, "\"--frob\": unknown option; see modelsrvd --help"},
        InvalidStartCase{"MissingValue", {"--tree"}, "--tree: missing value"},
        InvalidStartCase{"BadPeriod",
                         {"--period", "0"},
                         "--period: expected milliseconds from 50 to 60000, got \"0\""},
        InvalidStartCase{"NoFile",
                         {"--tree", "/nonexistent/x.json"},
                         "--tree: /nonexistent/x.json: No such file or directory"},
        InvalidStartCase{"Directory", {"--tree", "/"}, "--tree: /: not a regular file"},
        InvalidStartCase{
            "NoGroup", {"--group", "no such group"}, "--group: unknown group \"no such group\""},
        InvalidStartCase{"SlashInName", {"--name", "a/b"}, "--name: a/b: not a valid port name"},
        InvalidStartCase{"DotName", {"--name", ".a"}, "--name: .a: not a valid port name"},
        InvalidStartCase{
            "SemicolonInName", {"--name", "a;b"}, "--name: a;b: not a valid port name"},
        InvalidStartCase{
            "EscapeInName", {"--name", "a\x1B[2J"}, "--name: a\\x1b[2J: not a valid port name"}),
    [](const auto& test) { return std::string(test.param.what); });

struct InvalidFileCase {
  const char* what;
  const char* text;
  const char* line;  ///< after the file's name
};

class InvalidFile : public testing::TestWithParam<InvalidFileCase> {};

TEST_P(InvalidFile, IsReportedWithThePositionInIt) {
  const test_support::TemporaryFile file(GetParam().text);
  const Finished finished = test_support::runModelsrvd({"--tree", file.path()});
  EXPECT_EQ(finished.status, (ExitStatus{2, 0}));
  EXPECT_EQ(finished.output, "");
  EXPECT_THAT(finished.errors, StartsWith("modelsrvd: " + file.path() + ": " + GetParam().line));
  EXPECT_EQ(finished.errors.find('\n'), finished.errors.size() - 1);
}

INSTANTIATE_TEST_SUITE_P(
    Table, InvalidFile,
    testing::Values(
        InvalidFileCase{"Empty", "", "line 1, column 1: "},
        InvalidFileCase{"NoJson", "{\n\"name\": ]", "line 2, column 9: syntax error"},
        InvalidFileCase{"NoName", R"({"children": []})",
                        "/name: missing, and --name is not given\n"},
        InvalidFileCase{"EmptyName", R"({"name": "", "children": []})",
                        "/name: missing, and --name is not given\n"},
        InvalidFileCase{"BadName", R"({"name": "a/b", "children": []})",
                        "/name: a/b: not a valid port name\n"},
        InvalidFileCase{"ControlByteInName", R"({"name": "a\nb", "children": []})",
                        "/name: a\\x0ab: not a valid port name\n"},
        InvalidFileCase{"NulInName", R"({"name": "Model_\u0000x", "children": []})",
                        "/name: Model_\\x00x"},
        InvalidFileCase{
            "OutOfRange",
            R"({"name": "Model_x", "children": [{"children": [{"type":"int8","value":200}]}]})",
            "/children/0/children/0/value: 200 is out of range for int8\n"},
        InvalidFileCase{"DuplicateId",
                        R"({"children": [{"id": 1, "children": []}, {"id": 1, "children": []}]})",
                        "/children/1/id: duplicate id 1\n"}),
    [](const auto& test) { return std::string(test.param.what); });

TEST(Modelsrvd, ReportsThatItCannotPrint) {
  const std::string name = uniquePortName();
  const Finished finished = test_support::run(
      {"/bin/sh", "-c",
       "exec \"" + test_support::modelsrvdProgram() + "\" --name " + name + " >/dev/full"});
  EXPECT_EQ(finished.status, (ExitStatus{1, 0}));
  EXPECT_EQ(finished.errors, "modelsrvd: standard output: No space left on device\n");
  EXPECT_FALSE(std::filesystem::exists(mailboxPath(name)));
}

TEST(Modelsrvd, PublishesASyntheticTree) {
  test_support::ModelServer server({"--synthetic", "3x20"});
  test_support::TreeClient client(server.name());
  EXPECT_THAT(client.names(""), ElementsAre("group_000", "group_001", "group_002"));
  EXPECT_EQ(client.names("/group_002").size(), 20U);
  EXPECT_EQ(client.get("/group_002/item_0019"), "0");
  EXPECT_EQ(client.store("/group_002/item_0019", "-5"), ModelSrv::ModelRes_Success);
  EXPECT_EQ(client.get("/group_002/item_0019"), "-5");
}

TEST(Modelsrvd, ChangesEveryPartAtTheGivenRate) {
  test_support::ModelServer server({"--synthetic", "2x10", "--churn", "100000"});
  test_support::TreeClient client(server.name());
  ASSERT_EQ(client.subscribe("/group_001/item_0009"), ModelSrv::ModelRes_Success);
  EXPECT_TRUE(client.waitForUpdate());
  EXPECT_NE(client.get("/group_001/item_0009"), "0");
  EXPECT_TRUE(server.stops(SIGTERM)) << server.process().errors();
}

}  // namespace
}  // namespace modelsrvd
