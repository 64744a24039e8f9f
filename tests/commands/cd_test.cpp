#include "tests/commands/scope_fixture.h"

namespace treescope::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Cd : public ScopeFixture {};

TEST_F(Cd, ConnectsToTheServerOfThatName) {
  EXPECT_EQ(run("cd " + name_), (CommandResult{1, ""}));
  EXPECT_EQ(run("pwd"), (CommandResult{1, "/" + name_ + "\n"}));
}

TEST_F(Cd, ReportsANameWithoutAServer) {
  EXPECT_EQ(run("cd " + test_support::uniquePortName()),
            (CommandResult{7, "ERROR: ConnectError\n"}));
  EXPECT_EQ(run("cd"), (CommandResult{7, "ERROR: ConnectError\n"}));
  EXPECT_EQ(run("cd ~"), (CommandResult{7, "ERROR: ConnectError\n"}));
  EXPECT_EQ(run("cd /" + name_), (CommandResult{7, "ERROR: ConnectError\n"}));
  EXPECT_EQ(run("cd \"\""), (CommandResult{7, "ERROR: ConnectError\n"}));
  EXPECT_EQ(run("pwd"), (CommandResult{1, "/\n"}));
}

TEST_F(Cd, MovesInsideTheTree) {
  connect();
  struct Case {
    std::string path;
    std::string location;
  };
  const Case cases[] = {
      {"drive", "/drive"},
      {"inner/", "/drive/inner"},
      {"..", "/drive"},
      {"speed", "/drive/speed"},
      {"../noname-12", "/drive/noname-12"},
      {"~", ""},
      {"~drive", "/drive"},
      {"~/noname-3", "/noname-3"},
      {"/", ""},
      {"\"\"", ""},
      {"noname-1", "/drive"},
      {"/empty", "/empty"},
  };
  for (const Case& test : cases) {
    EXPECT_EQ(run("cd " + test.path), (CommandResult{1, ""})) << test.path;
    EXPECT_EQ(run("pwd").output, "/" + name_ + test.location + "\n") << test.path;
  }
}

TEST_F(Cd, StaysWithoutAMessageIfThePathDoesNotResolve) {
  connect();
  ASSERT_EQ(run("cd drive").result, 1);
  for (const char* path : {"nothing", "inner/nothing", "../..", "noname-99", "inner/../../../x"}) {
    EXPECT_EQ(run(std::string("cd ") + path), (CommandResult{1, ""})) << path;
    EXPECT_THAT(scope_.currentPath(), ElementsAre(name_, "drive")) << path;
    EXPECT_EQ(scope_.currentPart()->location(), (NamedChain{{1}, {"drive"}})) << path;
  }
}

TEST_F(Cd, DisconnectsWithoutAPath) {
  connect();
  ASSERT_EQ(run("cd drive").result, 1);
  EXPECT_EQ(run("cd"), (CommandResult{1, ""}));
  EXPECT_EQ(scope_.duCalls, 1);
  EXPECT_FALSE(scope_.connected());
  EXPECT_THAT(scope_.currentPath(), IsEmpty());
  EXPECT_EQ(run("cd " + name_), (CommandResult{1, ""}));
  EXPECT_THAT(scope_.currentPath(), ElementsAre(name_));
}

TEST_F(Cd, CancelsTheSubscriptionsBelowTheCurrentDirectoryBeforeItDisconnects) {
  connect();
  for (const char* command : {"eu drive/speed", "eu drive/inner/deep", "eu top", "cd drive"}) {
    ASSERT_EQ(run(command).result, 1) << command;
  }
  EXPECT_EQ(run("cd"), (CommandResult{1, ""}));
  EXPECT_TRUE(scope_.connectedDuringDu);
  EXPECT_EQ(scope_.subscribedAfterDu, 1U) << "only that of top";
  EXPECT_FALSE(scope_.connected());
}

TEST_F(Cd, EndsTheSubscriptionsElsewhereWithTheConnection) {
  connect();
  ASSERT_EQ(run("eu top").result, 1);
  ASSERT_EQ(run("cd drive").result, 1);
  ASSERT_EQ(run("cd").result, 1);
  connect();
  EXPECT_EQ(run("eu -l"), (CommandResult{1, ""}));
  ASSERT_EQ(server_.top.setValue("changed"), ModelSrv::ModelRes_Success);
  ASSERT_EQ(run("eu drive/speed").result, 1);
  ASSERT_EQ(server_.speed.setValue(43), ModelSrv::ModelRes_Success);
  EXPECT_EQ(takeUpdates(1), "/drive/speed\n");
}

TEST_F(Cd, StaysAfterTheServerHasStopped) {
  connect();
  server_.end();
  EXPECT_EQ(run("cd drive"), (CommandResult{1, ""}));
  EXPECT_THAT(scope_.currentPath(), ElementsAre(name_));
  EXPECT_EQ(run("cd"), (CommandResult{1, ""}));
  EXPECT_EQ(run("cd " + name_), (CommandResult{7, "ERROR: ConnectError\n"}));
}

TEST_F(Cd, AcceptsOnePathAndNoOptions) {
  EXPECT_EQ(run("cd a b"), (CommandResult{5, "ERROR: OptionError\n"}));
  EXPECT_EQ(run("cd -l"), (CommandResult{5, "ERROR: OptionError\n"}));
}

TEST_F(Cd, IsNotRequiredBeforeExit) {
  EXPECT_EQ(run("exit"), (CommandResult{11, ""}));
  EXPECT_EQ(scope_.duCalls, 1);
}

TEST_F(Cd, StaysConnectedAfterExitHasCancelledTheSubscriptions) {
  connect();
  EXPECT_EQ(run("q"), (CommandResult{11, ""}));
  EXPECT_EQ(scope_.duPath, "(null)");
  EXPECT_TRUE(scope_.connected());
}

}  // namespace
}  // namespace treescope::test
