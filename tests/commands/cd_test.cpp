#include "tests/commands/scope_fixture.h"

namespace treescope::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Cd : public ScopeFixture {};

TEST_F(Cd, ConnectsToTheServerOfThatName) {
  EXPECT_EQ(run("cd " + name_), (Answer{1, ""}));
  EXPECT_EQ(run("pwd"), (Answer{1, "/" + name_ + "\n"}));
}

TEST_F(Cd, ReportsANameThatNobodyServes) {
  EXPECT_EQ(run("cd " + test_support::uniquePortName()), (Answer{7, "ERROR: ConnectError\n"}));
  EXPECT_EQ(run("cd"), (Answer{7, "ERROR: ConnectError\n"}));
  EXPECT_EQ(run("cd ~"), (Answer{7, "ERROR: ConnectError\n"}));
  EXPECT_EQ(run("cd /" + name_), (Answer{7, "ERROR: ConnectError\n"}));
  EXPECT_EQ(run("cd \"\""), (Answer{7, "ERROR: ConnectError\n"}));
  EXPECT_EQ(run("pwd"), (Answer{1, "/\n"}));
}

TEST_F(Cd, MovesInsideTheTree) {
  connect();
  struct Case {
    std::string path;
    std::string place;
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
    EXPECT_EQ(run("cd " + test.path), (Answer{1, ""})) << test.path;
    EXPECT_EQ(run("pwd").output, "/" + name_ + test.place + "\n") << test.path;
  }
}

TEST_F(Cd, StaysSilentlyWhereAPathLeadsNowhere) {
  connect();
  ASSERT_EQ(run("cd drive").result, 1);
  for (const char* path : {"nothing", "inner/nothing", "../..", "noname-99", "inner/../../../x"}) {
    EXPECT_EQ(run(std::string("cd ") + path), (Answer{1, ""})) << path;
    EXPECT_THAT(scope_.currentPath(), ElementsAre(name_, "drive")) << path;
    EXPECT_EQ(scope_.currentPart()->location(), (NamedChain{{1}, {"drive"}})) << path;
  }
}

TEST_F(Cd, DisconnectsWithoutAPath) {
  connect();
  ASSERT_EQ(run("cd drive").result, 1);
  EXPECT_EQ(run("cd"), (Answer{1, ""}));
  EXPECT_EQ(scope_.dropped, 1);
  EXPECT_FALSE(scope_.connected());
  EXPECT_THAT(scope_.currentPath(), IsEmpty());
  EXPECT_EQ(run("cd " + name_), (Answer{1, ""}));
  EXPECT_THAT(scope_.currentPath(), ElementsAre(name_));
}

TEST_F(Cd, StaysWhereItIsOnceTheServerHasGone) {
  connect();
  server_.end();
  EXPECT_EQ(run("cd drive"), (Answer{1, ""}));
  EXPECT_THAT(scope_.currentPath(), ElementsAre(name_));
  EXPECT_EQ(run("cd"), (Answer{1, ""}));
  EXPECT_EQ(run("cd " + name_), (Answer{7, "ERROR: ConnectError\n"}));
}

TEST_F(Cd, TakesOnePathAndNoOptions) {
  EXPECT_EQ(run("cd a b"), (Answer{5, "ERROR: OptionError\n"}));
  EXPECT_EQ(run("cd -l"), (Answer{5, "ERROR: OptionError\n"}));
}

TEST_F(Cd, IsNotNeededToExit) {
  EXPECT_EQ(run("exit"), (Answer{11, ""}));
  EXPECT_EQ(scope_.dropped, 1);
}

TEST_F(Cd, IsUndoneByExitOnlyAsFarAsSubscriptionsGo) {
  connect();
  EXPECT_EQ(run("q"), (Answer{11, ""}));
  EXPECT_EQ(scope_.droppedPath, "(null)");
  EXPECT_TRUE(scope_.connected());
}

}  // namespace
}  // namespace treescope::test
