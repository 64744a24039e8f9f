#include "model/tree_scope.h"

#include "tests/model/scope_fixture.h"

namespace treescope::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Connection : public ScopeFixture {};

TEST_F(Connection, StandsAtTheServersRoot) {
  EXPECT_FALSE(scope_.connected());
  EXPECT_EQ(scope_.connectServer(name_), 1);
  ASSERT_TRUE(scope_.connected());
  EXPECT_EQ(scope_.currentPart()->serverName(), name_);
  EXPECT_EQ(scope_.currentPart()->location(), NamedChain());
  EXPECT_THAT(scope_.currentPart()->subscriptions(), IsEmpty());
  EXPECT_THAT(scope_.currentPath(), ElementsAre(name_));
  EXPECT_THAT(scope_.children(), ElementsAre(scope_.currentPart()));
}

TEST_F(Connection, ChangesNothingWhereNobodyServes) {
  EXPECT_EQ(scope_.connectServer(test_support::uniquePortName()), 7);
  EXPECT_EQ(scope_.connectServer(""), 7);
  EXPECT_EQ(scope_.connectServer("a/b"), 7);
  EXPECT_FALSE(scope_.connected());
  EXPECT_THAT(scope_.currentPath(), IsEmpty());
  EXPECT_THAT(scope_.children(), IsEmpty());
}

TEST_F(Connection, GivesUpOnAServerThatHangs) {
  server_.hang();
  EXPECT_EQ(scope_.connectServer(name_), 7);
  server_.resume();
  EXPECT_FALSE(scope_.connected());
  EXPECT_EQ(scope_.connectServer(name_), 1);
}

TEST_F(Connection, DropsSubscriptionsBeforeThePart) {
  ASSERT_EQ(scope_.connectServer(name_), 1);
  EXPECT_EQ(scope_.disconnectServer(), 1);
  EXPECT_EQ(scope_.dropped, 1);
  EXPECT_EQ(scope_.droppedPath, "(null)");
  EXPECT_TRUE(scope_.wasConnected);
  EXPECT_FALSE(scope_.connected());
  EXPECT_THAT(scope_.currentPath(), IsEmpty());
  EXPECT_THAT(scope_.children(), IsEmpty());
}

TEST_F(Connection, LeadsToAnotherServerAfterwards) {
  const std::string other = test_support::uniquePortName();
  RigServer second(other);
  ASSERT_EQ(second.speed.setValue(77), ModelSrv::ModelRes_Success);
  ASSERT_EQ(scope_.connectServer(name_), 1);
  ASSERT_EQ(scope_.disconnectServer(), 1);
  ASSERT_EQ(scope_.connectServer(other), 1);
  std::string text;
  scope_.readValueText({1, 1}, text, true);
  EXPECT_EQ(text, "77");
  EXPECT_THAT(scope_.currentPath(), ElementsAre(other));
}

TEST_F(Connection, EndsWithTheShell) {
  TreeScope scope(&manager_, 1);
  ASSERT_EQ(scope.connectServer(name_), 1);
  ASSERT_EQ(scope.subscribePath({1, 1}), 1);
}

TEST_F(Connection, EndsWithTheShellAfterTheRootWasStopped) {
  TreeScope scope(&manager_, 1);
  ASSERT_EQ(scope.connectServer(name_), 1);
  scope.stop(true);
}

class Update : public ScopeFixture {
 protected:
  void SetUp() override { connect(); }
};

TEST_F(Update, PrintsThePathOfThePartThatChanged) {
  ASSERT_EQ(scope_.subscribePath({1, 1}), 1);
  ASSERT_EQ(scope_.subscribePath({1, 12}), 1);
  ASSERT_EQ(server_.speed.setValue(43), ModelSrv::ModelRes_Success);
  EXPECT_EQ(takeUpdates(1).substr(0, 13), "/drive/speed\n");
  ASSERT_EQ(server_.unnamed.setValue(8), ModelSrv::ModelRes_Success);
  EXPECT_EQ(takeUpdates(1).substr(0, 17), "/drive/noname-12\n");
}

TEST_F(Update, OfTheRootPrintsASlash) {
  EXPECT_EQ(handUpdate({1, 0xff, 0xff}).substr(0, 2), "/\n");
  EXPECT_EQ(handUpdate({1}).substr(0, 2), "/\n");
}

TEST_F(Update, OfAnUnknownPartPrintsItsIds) {
  EXPECT_EQ(handUpdate({1, 0x00, 0x4d, 0x00, 0x05, 0xff, 0xff}).substr(0, 20),
            "/noname-77/noname-5\n");
}

TEST_F(Update, IsDroppedWhileNotConnected) {
  ASSERT_EQ(scope_.subscribePath({1, 1}), 1);
  ASSERT_EQ(run("cd").result, 1);
  EXPECT_EQ(handUpdate({1, 0x00, 0x01, 0x00, 0x01, 0xff, 0xff}), "");
}

TEST_F(Update, ReachesTheShellThroughItsPort) {
  EvtSrv::MemoryHolder data({1, 0, 1, 0xff, 0xff}, 1);
  EvtSrv::MemoryHolder reply;
  EvtSrv::EventPort& port = scope_;
  test_support::CapturedOutput captured;
  EXPECT_EQ(port.receive("x", ModelSrv::ModelRoot::EvtTyp_Model_Update, &data, &reply),
            EvtSrv::EvtRes_Success);
  EXPECT_EQ(captured.take().substr(0, 7), "/drive\n");
}

}  // namespace
}  // namespace treescope::test
