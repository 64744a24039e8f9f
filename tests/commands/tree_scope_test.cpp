#include "commands/tree_scope.h"

#include <atomic>
#include <memory>

#include "tests/commands/scope_fixture.h"

namespace treescope::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Connection : public ScopeFixture {};

TEST_F(Connection, StartsAtTheServersRoot) {
  EXPECT_FALSE(scope_.connected());
  EXPECT_EQ(scope_.connectServer(name_), 1);
  ASSERT_TRUE(scope_.connected());
  EXPECT_EQ(scope_.currentPart()->serverName(), name_);
  EXPECT_EQ(scope_.currentPart()->location(), NamedChain());
  EXPECT_THAT(scope_.currentPart()->subscriptions(), IsEmpty());
  EXPECT_THAT(scope_.currentPath(), ElementsAre(name_));
  EXPECT_THAT(scope_.children(), ElementsAre(scope_.currentPart()));
}

TEST_F(Connection, ChangesNothingWithoutAServer) {
  EXPECT_EQ(scope_.connectServer(test_support::uniquePortName()), 7);
  EXPECT_EQ(scope_.connectServer(""), 7);
  EXPECT_EQ(scope_.connectServer("a/b"), 7);
  EXPECT_FALSE(scope_.connected());
  EXPECT_THAT(scope_.currentPath(), IsEmpty());
  EXPECT_THAT(scope_.children(), IsEmpty());
}

TEST_F(Connection, FailsIfTheServerHangs) {
  server_.hang();
  EXPECT_EQ(scope_.connectServer(name_), 7);
  server_.resume();
  EXPECT_FALSE(scope_.connected());
  EXPECT_EQ(scope_.connectServer(name_), 1);
}

TEST_F(Connection, CancelsSubscriptionsBeforeDeletingThePart) {
  ASSERT_EQ(scope_.connectServer(name_), 1);
  EXPECT_EQ(scope_.disconnectServer(), 1);
  EXPECT_EQ(scope_.duCalls, 1);
  EXPECT_EQ(scope_.duPath, "(null)");
  EXPECT_TRUE(scope_.connectedDuringDu);
  EXPECT_FALSE(scope_.connected());
  EXPECT_THAT(scope_.currentPath(), IsEmpty());
  EXPECT_THAT(scope_.children(), IsEmpty());
}

TEST_F(Connection, CanBeOpenedToAnotherServerAfterwards) {
  const std::string other = test_support::uniquePortName();
  SampleServer second(other);
  ASSERT_EQ(second.speed.setValue(77), ModelSrv::ModelRes_Success);
  ASSERT_EQ(scope_.connectServer(name_), 1);
  ASSERT_EQ(scope_.disconnectServer(), 1);
  ASSERT_EQ(scope_.connectServer(other), 1);
  std::string text;
  scope_.readValueText({1, 1}, text, true);
  EXPECT_EQ(text, "77");
  EXPECT_THAT(scope_.currentPath(), ElementsAre(other));
}

TEST_F(Connection, EndsWithTheShellAndItsSubscriptions) {
  CountedNode node(41, "node");
  ModelSrv::ValuePart<bool> part(1, "part");
  ASSERT_EQ(node.add(&part), ModelSrv::ModelRes_Success);
  ASSERT_EQ(server_.drive.add(&node), ModelSrv::ModelRes_Success);
  for (const bool subscribed : {false, true}) {
    auto scope = std::make_unique<TreeScope>(&manager_, 1);
    ASSERT_EQ(scope->connectServer(name_), 1);
    if (subscribed) {
      ASSERT_EQ(scope->subscribePath({1, 41, 1}), 1);
    }
    node.requests = 0;
    scope.reset();
    EXPECT_EQ(node.requests > 0, subscribed);
  }
}

TEST_F(Connection, EndsWithTheShellAfterTheRootWasStopped) {
  TreeScope scope(&manager_, 1);
  ASSERT_EQ(scope.connectServer(name_), 1);
  scope.stop(true);
}

}  // namespace
}  // namespace treescope::test
