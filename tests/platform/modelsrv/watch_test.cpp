#include "modelsrv/watch.h"

#include <gmock/gmock.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/platform/modelsrv/served_tree.h"
#include "tests/platform/modelsrv/watch_log.h"

// What a program gets from its watches.

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

class Watches : public ConnectedClient {
 protected:
  /// Starts the watch and waits for the current values.
  ModelRes start(Watch& watch, WatchLog& log, const Chain& chain,
                 const WatchOptions& options = {}) {
    const ModelRes result = watch.start(client_.root, chain, options, log.callback());
    if (result == ModelRes_Success) {
      EXPECT_TRUE(awaits(log, "complete"));
    }
    return result;
  }

  /// Dispatches until the last line is `line`.
  bool awaits(const WatchLog& log, const std::string& line) {
    return client_.pumpUntil([&] { return !log.lines.empty() && log.lines.back() == line; });
  }

  WatchLog log_;
  Watch watch_;
};

TEST_F(Watches, ReportTheCurrentValueAndThenEachChangeWithItsValue) {
  ASSERT_EQ(start(watch_, log_, speedChain), ModelRes_Success);
  EXPECT_THAT(log_.take(), ElementsAre("begin", "added 1.1 speed", "value 1.1 42 x0", "complete"));
  ASSERT_EQ(server_.speed.setValue(43), ModelRes_Success);
  ASSERT_TRUE(awaits(log_, "value 1.1 43 x1"));
  ASSERT_EQ(server_.speed.setValue(44), ModelRes_Success);
  ASSERT_TRUE(awaits(log_, "value 1.1 44 x1"));
  EXPECT_EQ(log_.lines.size(), 2U);
  EXPECT_TRUE(watch_.isActive());
}

TEST_F(Watches, ReportTheTimeOfTheChange) {
  using Clock = std::chrono::system_clock;
  const auto now = [] { return std::chrono::nanoseconds(Clock::now().time_since_epoch()).count(); };
  ASSERT_EQ(start(watch_, log_, speedChain), ModelRes_Success);
  const std::int64_t before = now();
  ASSERT_EQ(server_.speed.setValue(43), ModelRes_Success);
  const std::int64_t after = now();
  ASSERT_TRUE(awaits(log_, "value 1.1 43 x1"));
  EXPECT_GE(log_.lastTimeNs, before);
  EXPECT_LE(log_.lastTimeNs, after);
}

TEST_F(Watches, ReportOneElementOrAll) {
  WatchLog whole;
  Watch wholeWatch;
  WatchOptions element;
  element.index = 1;
  ASSERT_EQ(start(watch_, log_, gainsChain, element), ModelRes_Success);
  ASSERT_EQ(start(wholeWatch, whole, gainsChain), ModelRes_Success);
  EXPECT_THAT(log_.take(),
              ElementsAre("begin", "added 1.3 gains", "value 1.3[1] 0.25 x0", "complete"));
  EXPECT_THAT(whole.take(),
              ElementsAre("begin", "added 1.3 gains", "value 1.3 1.5\n0.25 x0", "complete"));
  ASSERT_EQ(server_.gains.setValue(0, 7), ModelRes_Success);
  ASSERT_EQ(server_.gains.setValue(1, 8), ModelRes_Success);
  ASSERT_TRUE(awaits(whole, "value 1.3[1] 8 x1"));
  ASSERT_EQ(server_.gains.setValues({1, 2}), ModelRes_Success);
  ASSERT_TRUE(awaits(whole, "value 1.3 1\n2 x1"));
  EXPECT_THAT(whole.take(),
              ElementsAre("value 1.3[0] 7 x1", "value 1.3[1] 8 x1", "value 1.3 1\n2 x1"));
  ASSERT_TRUE(awaits(log_, "value 1.3[1] 2 x1"));
  EXPECT_THAT(log_.take(), ElementsAre("value 1.3[1] 8 x1", "value 1.3[1] 2 x1"));
}

TEST_F(Watches, OfASubtreeReportAllPartsInTheOrderOfTheirIds) {
  ASSERT_EQ(start(watch_, log_, driveChain, {.subtree = true}), ModelRes_Success);
  EXPECT_THAT(
      log_.take(),
      ElementsAre("begin", "added 1 drive/", "added 1.1 speed", "value 1.1 42 x0",
                  "added 1.2 label", "value 1.2 two words x0", "added 1.3 gains",
                  "value 1.3 1.5\n0.25 x0", "added 1.4 raw", "value 1.4 1\n2\n3 x0",
                  "added 1.5 serial", "value 1.5 A-17 x0", "added 1.6 offset", "value 1.6 0 x0",
                  "added 1.7 secret", "added 1.8 limited", "value 1.8 1 x0", "added 1.12 ",
                  "value 1.12 7 x0", "added 1.13 speed", "value 1.13 99 x0", "added 1.14 inner/",
                  "added 1.14.1 deep", "value 1.14.1 5 x0", "complete"));
  ASSERT_EQ(server_.x.setValue(1), ModelRes_Success);
  ASSERT_EQ(server_.secret.setValue(true), ModelRes_Success);
  ASSERT_EQ(server_.deep.setValue(6), ModelRes_Success);
  ASSERT_TRUE(awaits(log_, "value 1.14.1 6 x1"));
  EXPECT_EQ(log_.lines.size(), 1U) << "not of other parts, or those that refuse subscriptions";
}

TEST_F(Watches, ReportPartsThatComeAndGo) {
  ASSERT_EQ(start(watch_, log_, {}, {.subtree = true}), ModelRes_Success);
  log_.take();
  ModelNode added(7, "added");
  ValuePart<int> first(1, "first", 10);
  ASSERT_EQ(added.add(&first), ModelRes_Success);
  ASSERT_EQ(server_.empty.add(&added), ModelRes_Success);
  ASSERT_TRUE(awaits(log_, "value 2.7.1 10 x0"));
  EXPECT_THAT(log_.take(),
              ElementsAre("added 2.7 added/", "added 2.7.1 first", "value 2.7.1 10 x0"));
  ASSERT_EQ(first.setValue(11), ModelRes_Success);
  ASSERT_TRUE(awaits(log_, "value 2.7.1 11 x1"));
  ASSERT_EQ(server_.empty.remove(&added), ModelRes_Success);
  ASSERT_TRUE(awaits(log_, "removed 2.7"));
  ASSERT_EQ(first.setValue(12), ModelRes_Success);
  ASSERT_EQ(server_.speed.setValue(1), ModelRes_Success);
  ASSERT_TRUE(awaits(log_, "value 1.1 1 x1"));
  EXPECT_THAT(log_.take(), ElementsAre("value 2.7.1 11 x1", "removed 2.7", "value 1.1 1 x1"));
}

TEST_F(Watches, OfAPartReturnWithAPartOfTheSameName) {
  ASSERT_EQ(start(watch_, log_, speedChain), ModelRes_Success);
  log_.take();
  ASSERT_EQ(server_.drive.remove(&server_.speed), ModelRes_Success);
  ASSERT_TRUE(awaits(log_, "removed 1.1"));
  ValuePart<int> other(1, "other", 5);
  ASSERT_EQ(server_.drive.add(&other), ModelRes_Success);
  ASSERT_EQ(server_.drive.remove(&other), ModelRes_Success);
  ValuePart<int> same(1, "speed", 6);
  ASSERT_EQ(server_.drive.add(&same), ModelRes_Success);
  ASSERT_TRUE(awaits(log_, "value 1.1 6 x0"));
  ASSERT_EQ(same.setValue(7), ModelRes_Success);
  ASSERT_TRUE(awaits(log_, "value 1.1 7 x1"));
  EXPECT_THAT(log_.take(),
              ElementsAre("removed 1.1", "added 1.1 speed", "value 1.1 6 x0", "value 1.1 7 x1"));
}

TEST_F(Watches, BeginAgainOnANewConnection) {
  ASSERT_EQ(start(watch_, log_, speedChain), ModelRes_Success);
  WatchLog tree;
  Watch treeWatch;
  ASSERT_EQ(start(treeWatch, tree, {3}, {.subtree = true}), ModelRes_Success);
  log_.take();
  tree.take();
  server_.end();
  ASSERT_EQ(server_.speed.setValue(77), ModelRes_Success);
  ASSERT_EQ(server_.root.startAsServer(name_), ModelRes_Success);
  server_.resume();
  ASSERT_TRUE(awaits(tree, "complete"));
  EXPECT_THAT(tree.take(),
              ElementsAre("begin", "added 3 /", "added 3.1 x", "value 3.1 3 x0", "complete"));
  ASSERT_TRUE(awaits(log_, "complete"));
  EXPECT_THAT(log_.take(), ElementsAre("begin", "added 1.1 speed", "value 1.1 77 x0", "complete"));
  ASSERT_EQ(server_.speed.setValue(78), ModelRes_Success);
  ASSERT_TRUE(awaits(log_, "value 1.1 78 x1"));
}

TEST_F(Watches, OfAnAbsentPartWaitForItAfterAReconnection) {
  ASSERT_EQ(start(watch_, log_, speedChain), ModelRes_Success);
  log_.take();
  server_.end();
  ASSERT_EQ(server_.drive.remove(&server_.speed), ModelRes_Success);
  ASSERT_EQ(server_.root.startAsServer(name_), ModelRes_Success);
  server_.resume();
  ASSERT_TRUE(awaits(log_, "complete"));
  EXPECT_THAT(log_.take(), ElementsAre("begin", "complete"));
  ASSERT_EQ(server_.drive.add(&server_.speed), ModelRes_Success);
  ASSERT_TRUE(awaits(log_, "value 1.1 42 x0"));
  EXPECT_THAT(log_.take(), ElementsAre("added 1.1 speed", "value 1.1 42 x0"));
}

TEST_F(Watches, LeaveALongValueToARequest) {
  ASSERT_EQ(server_.label.setValue(std::string(ModelWatchText_Max, 'x')), ModelRes_Success);
  std::string fetched;
  ASSERT_EQ(watch_.start(client_.root, labelChain, {},
                         [&](const WatchEvent& event) {
                           log_.add(event);
                           if (event.result == ModelRes_TooLarge) {
                             EXPECT_EQ(watch_.fetch(event, fetched), ModelRes_Success);
                           }
                         }),
            ModelRes_Success);
  ASSERT_TRUE(awaits(log_, "complete"));
  EXPECT_EQ(log_.take()[2], "value 1.2 " + std::string(ModelWatchText_Max, 'x') + " x0");
  const std::string large(ModelWatchText_Max + 1, 'y');
  ASSERT_EQ(server_.label.setValue(large), ModelRes_Success);
  ASSERT_TRUE(awaits(log_, "value 1.2 (too large) x1"));
  EXPECT_EQ(fetched, large);
}

TEST_F(Watches, SendTheLastValueToASlowClient) {
  ASSERT_EQ(start(watch_, log_, driveChain, {.subtree = true}), ModelRes_Success);
  log_.take();
  constexpr int changes = 100'000;
  for (int value = 1; value <= changes; ++value) {
    ASSERT_EQ(server_.speed.setValue(1000 + value), ModelRes_Success);
    ASSERT_EQ(server_.limited.setValue(1000 + value), ModelRes_Success);
  }
  const auto sum = [&](const std::string& chain) { return log_.changes[chain]; };
  ASSERT_TRUE(client_.pumpUntil([&] { return sum("1.1") + sum("1.8") == 2 * changes; }));
  EXPECT_EQ(log_.values["1.1"], std::to_string(1000 + changes));
  EXPECT_EQ(log_.values["1.8"], std::to_string(1000 + changes));
  EXPECT_LT(log_.lines.size(), 20'000U) << "the pipe takes 64 KiB";
}

TEST_F(Watches, ReportAPartOnceAPeriod) {
  constexpr std::uint32_t period = 200;
  ASSERT_EQ(start(watch_, log_, driveChain, {.subtree = true, .period = period}), ModelRes_Success);
  log_.take();
  const auto begin = std::chrono::steady_clock::now();
  for (int value = 1; value <= 1000; ++value) {
    ASSERT_EQ(server_.speed.setValue(1000 + value), ModelRes_Success);
  }
  ASSERT_TRUE(client_.pumpUntil([&] { return log_.values["1.1"] == "2000"; }));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(period - 1));
  EXPECT_EQ(log_.changes["1.1"], 1000U);
  EXPECT_LT(log_.lines.size(), 1000U);
  ASSERT_EQ(server_.limited.setValue(5), ModelRes_Success);
  ASSERT_TRUE(awaits(log_, "value 1.8 5 x1")) << "another part does not wait";
}

TEST_F(Watches, AreRefusedWithAReason) {
  WatchOptions element;
  element.index = 2;
  EXPECT_EQ(start(watch_, log_, {1, 99}), ModelRes_NoSuchPart);
  EXPECT_EQ(start(watch_, log_, secretChain), ModelRes_NotSubscribable);
  EXPECT_EQ(start(watch_, log_, gainsChain, element), ModelRes_NoSuchIndex);
  element.subtree = true;
  EXPECT_EQ(start(watch_, log_, gainsChain, element), ModelRes_BadArgument);
  EXPECT_EQ(watch_.start(client_.root, speedChain, {}, nullptr), ModelRes_BadArgument);
  EXPECT_FALSE(watch_.isActive());
  EXPECT_EQ(watch_.stop(), ModelRes_NotSubscribed);
  Client other;
  EXPECT_EQ(watch_.start(other.root, speedChain, {}, log_.callback()), ModelRes_NotConnected);
}

TEST_F(Watches, AreEndedBeforeAPartIsLookedFor) {
  ASSERT_EQ(start(watch_, log_, speedChain), ModelRes_Success);
  ModelPart outside(1, "outside");
  EXPECT_EQ(watch_.start(outside, {}, log_.callback()), ModelRes_NoSuchPart);
  EXPECT_FALSE(watch_.isActive());
  EXPECT_FALSE(server_.speed.isWatched());
}

TEST_F(Watches, OfATimedOutRequestAreEndedWithTheirFirstEvent) {
  std::vector<std::string> calls;
  server_.speed.setWatchHandler([&](bool watched) { calls.push_back(watched ? "+" : "-"); });
  server_.limited.setWatchHandler([&](bool watched) { calls.push_back(watched ? "L+" : "L-"); });
  ASSERT_EQ(start(watch_, log_, speedChain), ModelRes_Success);
  log_.take();
  server_.hang();
  Watch late;
  const Chain limitedChain{1, 8};
  EXPECT_EQ(late.start(client_.root, limitedChain, {}, log_.callback()), ModelRes_Timeout);
  EXPECT_EQ(watch_.stop(), ModelRes_Timeout);
  ASSERT_EQ(server_.speed.setValue(43), ModelRes_Success);
  server_.resume();
  const auto haveEnded = [&] {
    const KSTD::KThreadMutexLock lock(server_.manager.clientMutex);
    return calls.size() == 4;
  };
  // What the library does by itself is no event for the program.
  constexpr int shortWait = 10;
  for (int left = test_support::timeoutMilliseconds; left > 0 && !haveEnded(); left -= shortWait) {
    static_cast<void>(client_.manager.receiveEvent(shortWait));
  }
  EXPECT_THAT(calls, UnorderedElementsAre("+", "L+", "-", "L-"));
  EXPECT_THAT(log_.take(), testing::IsEmpty());
  EXPECT_EQ(client_.text(speedChain), "43");
  server_.speed.setWatchHandler({});
  server_.limited.setWatchHandler({});
}

TEST_F(Watches, EndWithTheirObject) {
  auto watch = std::make_unique<Watch>();
  ASSERT_EQ(start(*watch, log_, speedChain), ModelRes_Success);
  EXPECT_TRUE(server_.speed.isWatched());
  log_.take();
  watch.reset();
  EXPECT_FALSE(server_.speed.isWatched());
  ASSERT_EQ(server_.speed.setValue(1), ModelRes_Success);
  ASSERT_EQ(start(watch_, log_, driveChain), ModelRes_Success);
  EXPECT_THAT(log_.take(), ElementsAre("begin", "added 1 drive/", "complete"));
}

TEST_F(Watches, MayEndInTheirCallback) {
  auto watch = std::make_unique<Watch>();
  int calls = 0;
  ASSERT_EQ(watch->start(client_.root, speedChain, {},
                         [&](const WatchEvent& event) {
                           ++calls;
                           if (event.kind == WatchEvent::Kind::added) {
                             watch.reset();
                           }
                         }),
            ModelRes_Success);
  ASSERT_TRUE(client_.pumpUntil([&] { return watch == nullptr; }));
  ASSERT_EQ(start(watch_, log_, speedChain), ModelRes_Success);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(watch_.stop(), ModelRes_Success);
  EXPECT_FALSE(server_.speed.isWatched());
}

TEST_F(Watches, EndWithTheConnectionThatTheProgramEnds) {
  ASSERT_EQ(start(watch_, log_, speedChain), ModelRes_Success);
  ASSERT_EQ(client_.connect(name_), ModelRes_Success);
  EXPECT_FALSE(watch_.isActive());
  ASSERT_EQ(start(watch_, log_, speedChain), ModelRes_Success);
  client_.root.stop(true);
  EXPECT_FALSE(watch_.isActive());
  EXPECT_EQ(watch_.stop(), ModelRes_NotSubscribed);
}

TEST_F(Watches, CallTheHandlersOfTheWatchedParts) {
  std::vector<std::string> calls;
  const auto record = [&](const char* part) {
    return
        [&calls, part](bool watched) { calls.push_back(part + std::string(watched ? "+" : "-")); };
  };
  server_.speed.setWatchHandler(record("speed"));
  server_.deep.setWatchHandler(record("deep"));
  server_.x.setWatchHandler(record("x"));
  Watch other;
  ASSERT_EQ(start(watch_, log_, driveChain, {.subtree = true}), ModelRes_Success);
  EXPECT_THAT(calls, ElementsAre("speed+", "deep+"));
  ASSERT_EQ(start(other, log_, speedChain), ModelRes_Success);
  ASSERT_EQ(client_.subscribe({1, 14, 1}), ModelRes_Success);
  EXPECT_EQ(calls.size(), 2U);
  EXPECT_EQ(watch_.stop(), ModelRes_Success);
  EXPECT_EQ(calls.size(), 2U);
  EXPECT_EQ(other.stop(), ModelRes_Success);
  ASSERT_EQ(client_.unsubscribe({1, 14, 1}), ModelRes_Success);
  EXPECT_THAT(calls, ElementsAre("speed+", "deep+", "speed-", "deep-"));
  calls.clear();
  ASSERT_EQ(start(watch_, log_, {}, {.subtree = true}), ModelRes_Success);
  ASSERT_EQ(server_.root.remove(&server_.drive), ModelRes_Success);
  EXPECT_THAT(calls, UnorderedElementsAre("speed+", "deep+", "x+", "speed-", "deep-"));
  ASSERT_EQ(server_.root.add(&server_.drive), ModelRes_Success);
  ASSERT_TRUE(awaits(log_, "value 1.14.1 5 x0"));
  EXPECT_EQ(calls.size(), 7U) << "as soon as the values are read";
  server_.speed.setWatchHandler({});
  server_.deep.setWatchHandler({});
  server_.x.setWatchHandler({});
}

}  // namespace
