#include <gmock/gmock.h>

#include <chrono>
#include <deque>
#include <string>
#include <vector>

#include "tests/platform/modelsrv/hiding_node.h"
#include "tests/platform/modelsrv/watch_session.h"

// What a session does with its watches while the program and the client change things at once.

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;
using testing::ElementsAre;
using testing::IsEmpty;

using SessionWatch = WatchSession;

TEST_F(SessionWatch, MayEndWhileItsValueIsRead) {
  ASSERT_EQ(session_.watch(1, {1}, subtree), ModelRes_Success);
  session_.takeAll();
  server_.speed.setGetter([&](std::int32_t& value) {
    value = 5;
    // As a request that is served while the getter dispatches.
    EXPECT_EQ(session_.unwatch(1), ModelRes_Success);
    EXPECT_EQ(server_.limited.setValue(7), ModelRes_Success);
    return ModelRes_Success;
  });
  server_.speed.notifyChange();
  EXPECT_THAT(session_.takeAll(), IsEmpty());
  EXPECT_FALSE(server_.limited.isWatched());
  EXPECT_EQ(server_.limited.setValue(8), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(), IsEmpty());
  server_.speed.setGetter({});
}

TEST_F(SessionWatch, ReportsThatAPartHasNoValueAnyMore) {
  ModelRes result = ModelRes_Success;
  server_.speed.setGetter([&](std::int32_t& value) {
    value = 5;
    return result;
  });
  ASSERT_EQ(session_.watch(1, speedChain), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(),
              ElementsAre("begin", "added 1.1 speed", "value 1.1 5 x0", "complete"));
  result = ModelRes_NoValue;
  server_.speed.notifyChange();
  EXPECT_THAT(session_.takeAll(),
              ElementsAre("value 1.1 (" + std::string(describe(ModelRes_NoValue)) + ") x1"));
  server_.speed.setGetter({});
}

// Nodes that hide their children.

class WatchOfAHidingNode : public WatchSession {
 protected:
  WatchOfAHidingNode() {
    EXPECT_EQ(group_.add(&inner_), ModelRes_Success);
    EXPECT_EQ(hiding_.add(&group_), ModelRes_Success);
    EXPECT_EQ(server_.root.add(&hiding_), ModelRes_Success);
  }

  HidingNode hiding_{30, "hiding", server_.manager};
  ModelNode group_{1, "group"};
  ValuePart<std::int32_t> inner_{1, "inner", 1};
};

TEST_F(WatchOfAHidingNode, ReportsAHiddenPartWhenItIsShown) {
  hiding_.hide(true);
  ASSERT_EQ(session_.watch(1, {30, 1, 1}, mayBeAbsent), ModelRes_Success);
  ASSERT_EQ(session_.watch(2, {30, 1}, mayBeAbsent | subtree), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(), ElementsAre("begin", "begin", "complete", "complete"));
  ASSERT_EQ(inner_.setValue(2), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(), IsEmpty());
  hiding_.hide(false);
  EXPECT_THAT(
      session_.takeAll(),
      testing::UnorderedElementsAre("added 30.1.1 inner", "value 30.1.1 2 x0", "added 30.1 group/",
                                    "added 30.1.1 inner", "value 30.1.1 2 x0"));
}

TEST_F(WatchOfAHidingNode, LosesNoChangeThatWasMadeMeanwhile) {
  ASSERT_EQ(session_.watch(1, {}, subtree), ModelRes_Success);
  ASSERT_EQ(session_.watch(2, {30, 1, 1}), ModelRes_Success);
  session_.takeAll();
  hiding_.hide(true);
  ASSERT_EQ(inner_.setValue(2), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(), IsEmpty());
  hiding_.hide(false);
  EXPECT_THAT(session_.takeAll(),
              testing::UnorderedElementsAre("added 30 hiding/", "added 30.1 group/",
                                            "added 30.1.1 inner", "value 30.1.1 2 x0",
                                            "added 30.1.1 inner", "value 30.1.1 2 x0"));
  ASSERT_EQ(inner_.setValue(3), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(), ElementsAre("value 30.1.1 3 x1", "value 30.1.1 3 x1"));
}

TEST_F(WatchOfAHidingNode, ReportsNoPartThatIsAddedBelowIt) {
  ASSERT_EQ(session_.watch(1, {}, subtree), ModelRes_Success);
  session_.takeAll();
  ValuePart<std::int32_t> other(2, "other", 7);
  hiding_.hide(true);
  ASSERT_EQ(group_.add(&other), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(), IsEmpty());
  ASSERT_EQ(other.setValue(8), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(), IsEmpty());
}

TEST_F(WatchOfAHidingNode, StopsAWalkThatHasBegun) {
  ASSERT_EQ(session_.watch(1, {30}, subtree), ModelRes_Success);
  std::vector<std::string> lines;
  for (int events = 0; events < 3; ++events) {
    ASSERT_TRUE(session_.takeOne(lines));
  }
  EXPECT_THAT(lines, ElementsAre("begin", "added 30 hiding/", "added 30.1 group/"));
  hiding_.hide(true);
  EXPECT_THAT(session_.takeAll(), ElementsAre("complete"));
}

TEST_F(WatchOfAHidingNode, EndsAWalkBeforeTheNextOneOfTheSameNode) {
  ASSERT_EQ(session_.watch(1, {}, subtree), ModelRes_Success);
  session_.takeAll();
  hiding_.hide(true);
  hiding_.hide(false);
  std::vector<std::string> lines;
  for (int events = 0; events < 3; ++events) {
    ASSERT_TRUE(session_.takeOne(lines));
  }
  EXPECT_EQ(lines.back(), "value 30.1.1 1 x0");
  ASSERT_EQ(group_.remove(&inner_), ModelRes_Success);
  hiding_.hide(true);
  hiding_.hide(false);
  ValuePart<std::int32_t> other(1, "other", 7);
  ASSERT_EQ(group_.add(&other), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(),
              ElementsAre("removed 30.1.1", "added 30 hiding/", "added 30.1 group/",
                          "added 30.1.1 other", "value 30.1.1 7 x0"));
}

TEST_F(SessionWatch, ReportsNoPartWithoutAnId) {
  ASSERT_EQ(session_.watch(1, {}, subtree), ModelRes_Success);
  session_.takeAll();
  ModelNode group(ModelPartId_Void, "group");
  ValuePart<std::int32_t> inner(1, "inner", 7);
  ASSERT_EQ(group.add(&inner), ModelRes_Success);
  ASSERT_EQ(server_.drive.add(&group), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(), IsEmpty());
  ASSERT_EQ(inner.setValue(8), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(), IsEmpty());
  ASSERT_EQ(server_.drive.remove(&group), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(), IsEmpty());
}

TEST_F(SessionWatch, ReportsAPartThatAcceptsSubscriptionsAgain) {
  ASSERT_EQ(session_.watch(1, {1}, subtree), ModelRes_Success);
  session_.takeAll();
  server_.limited.setSubscribable(false);
  ASSERT_EQ(server_.limited.setValue(2), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(), IsEmpty());
  server_.limited.setSubscribable(true);
  EXPECT_THAT(session_.takeAll(), ElementsAre("added 1.8 limited", "value 1.8 2 x0"));
  ASSERT_EQ(server_.limited.setValue(3), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(), ElementsAre("value 1.8 3 x1"));
}

TEST_F(SessionWatch, ReportsThatAPartLeavesWhichIsToBeReportedAgain) {
  ASSERT_EQ(session_.watch(1, {1}, subtree), ModelRes_Success);
  session_.takeAll();
  server_.limited.setSubscribable(false);
  server_.limited.setSubscribable(true);
  ASSERT_EQ(server_.drive.remove(&server_.limited), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(), ElementsAre("removed 1.8"));
  ASSERT_EQ(server_.drive.add(&server_.limited), ModelRes_Success);
  server_.limited.setSubscribable(false);
  server_.limited.setSubscribable(true);
  ASSERT_EQ(server_.drive.remove(&server_.limited), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(), IsEmpty()) << "the client has not heard of it";
}

TEST_F(SessionWatch, HasAtMostAThousandWatches) {
  for (std::uint32_t number = 1; number <= 1000; ++number) {
    ASSERT_EQ(session_.watch(number, speedChain), ModelRes_Success);
  }
  EXPECT_EQ(session_.watch(1001, speedChain), ModelRes_LimitReached);
  EXPECT_EQ(session_.watch(1001, {99}, mayBeAbsent), ModelRes_LimitReached);
  EXPECT_EQ(session_.unwatch(1), ModelRes_Success);
  EXPECT_EQ(session_.watch(1001, speedChain), ModelRes_Success);
}

TEST_F(SessionWatch, CompletesWithAnAccountAtItsLimit) {
  ASSERT_EQ(session_.watch(1, {}, subtree), ModelRes_Success);
  std::size_t step = EvtSrv::internal::limits::bytesOfSession;
  for (; step > 0; step /= 2) {
    while (session_.connection.account().add(step)) {
    }
  }
  EXPECT_EQ(session_.watch(2, {}, subtree), ModelRes_LimitReached);
  EXPECT_EQ(session_.takeAll().back(), "complete");
  // What is pending takes memory: it is reported anew instead.
  ASSERT_EQ(server_.speed.setValue(5), ModelRes_Success);
  const std::vector<std::string> lines = session_.takeAll();
  EXPECT_THAT(lines, testing::Contains("value 1.1 5 x0"));
  EXPECT_EQ(lines.back(), "complete");
}

TEST_F(SessionWatch, CallsAWatchHandlerWhenItReachesThePart) {
  std::vector<bool> calls;
  std::vector<bool> secretCalls;
  server_.deep.setWatchHandler([&](bool watched) { calls.push_back(watched); });
  server_.secret.setWatchHandler([&](bool watched) { secretCalls.push_back(watched); });
  ASSERT_EQ(session_.watch(1, {1}, subtree), ModelRes_Success);
  EXPECT_THAT(calls, IsEmpty()) << "one request does not call them all";
  session_.takeAll();
  EXPECT_THAT(calls, ElementsAre(true));
  EXPECT_THAT(secretCalls, IsEmpty()) << "its values are not reported";
  EXPECT_EQ(session_.unwatch(1), ModelRes_Success);
  EXPECT_THAT(calls, ElementsAre(true, false));
  EXPECT_THAT(secretCalls, IsEmpty());
  server_.deep.setWatchHandler({});
  server_.secret.setWatchHandler({});
}

// Handlers that take time, as those of a program that makes a system call in each.
TEST_F(SessionWatch, CallsTheHandlersOfManyPartsInSeveralDispatchesWhenItEnds) {
  constexpr std::size_t count = 1000;
  constexpr std::chrono::microseconds time{20};
  std::size_t unwatched = 0;
  ModelNode many(20, "many");
  std::deque<ValuePart<std::int32_t>> parts;
  for (std::size_t i = 0; i < count; ++i) {
    parts.emplace_back(static_cast<ModelPartId>(i), "part");
    ASSERT_EQ(many.add(&parts.back()), ModelRes_Success);
    parts.back().setWatchHandler([&](bool watched) {
      unwatched += watched ? 0 : 1;
      const auto end = std::chrono::steady_clock::now() + time;
      while (std::chrono::steady_clock::now() < end) {
      }
    });
  }
  ASSERT_EQ(server_.root.add(&many), ModelRes_Success);
  for (const bool endsTwice : {false, true}) {
    ASSERT_EQ(session_.watch(1, {20}, subtree), ModelRes_Success);
    ASSERT_EQ(session_.watch(2, {20, 7}), ModelRes_Success);
    session_.takeAll();
    unwatched = 0;
    ASSERT_EQ(session_.unwatch(1), ModelRes_Success);
    EXPECT_GT(unwatched, 0U);
    EXPECT_LT(unwatched, count / 10);
    if (endsTwice) {
      ASSERT_EQ(session_.watch(1, {20}, subtree), ModelRes_Success);
      ASSERT_EQ(session_.unwatch(1), ModelRes_Success);
    }
    for (std::size_t dispatches = 0; unwatched < count - 1; ++dispatches) {
      ASSERT_LT(dispatches, count);
      const std::size_t before = unwatched;
      ASSERT_EQ(server_.manager.receiveEvent(0), EvtSrv::EvtRes_Success);
      ASSERT_LT(unwatched, before + count / 10);
    }
    EXPECT_TRUE(parts[7].isWatched());
    ASSERT_EQ(session_.unwatch(2), ModelRes_Success);
    EXPECT_EQ(unwatched, count);
  }
  // The end of the service leaves none.
  ASSERT_EQ(session_.watch(1, {20}, subtree), ModelRes_Success);
  session_.takeAll();
  unwatched = 0;
  ASSERT_EQ(session_.unwatch(1), ModelRes_Success);
  server_.root.stop(true);
  EXPECT_EQ(unwatched, count);
}

TEST_F(SessionWatch, SendsRestingValuesBeforeTheEnd) {
  ASSERT_EQ(session_.watch(1, {1}, subtree, 3'600'000), ModelRes_Success);
  session_.takeAll();
  ASSERT_EQ(server_.speed.setValue(1), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(), ElementsAre("value 1.1 1 x1"));
  ASSERT_EQ(server_.speed.setValue(2), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(), IsEmpty());
  session_.beginDrain();
  EXPECT_THAT(session_.takeAll(), ElementsAre("value 1.1 2 x1"));
  ASSERT_EQ(server_.speed.setValue(3), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(), ElementsAre("value 1.1 3 x1"));
}

}  // namespace
