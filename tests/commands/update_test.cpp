#include <atomic>
#include <cstdio>
#include <string>
#include <thread>

#include "model/update_display.h"
#include "tests/commands/scope_fixture.h"

namespace treescope::test {
namespace {

class UpdateDisplay : public ScopeFixture {
 protected:
  void SetUp() override { connect(); }

  ScreenPrinter printer_{0, true};

  /// The listing of the root after its first node.
  static std::string top() {
    return "+-- empty        []\n+-- noname-3/\n    +-- notfound  [nodata]\n+-- " +
           SampleServer::oddName() + "  [odd value]\n+-- top          [line break]\n";
  }
};

TEST_F(UpdateDisplay, PrintsThePathOfThePartThatChanged) {
  ASSERT_EQ(scope_.subscribePath({1, 1}), 1);
  ASSERT_EQ(scope_.subscribePath({1, 12}), 1);
  ASSERT_EQ(server_.speed.setValue(43), ModelSrv::ModelRes_Success);
  EXPECT_EQ(takeUpdates(1), "/drive/speed\n");
  ASSERT_EQ(server_.unnamed.setValue(8), ModelSrv::ModelRes_Success);
  EXPECT_EQ(takeUpdates(1), "/drive/noname-12\n");
}

TEST_F(UpdateDisplay, PrintsASlashForTheRoot) {
  const std::string listing = "/\n+-- drive/\n    +-- notfound  [nodata]\n" + top();
  EXPECT_EQ(deliverUpdate({1, 0xff, 0xff}), listing);
  EXPECT_EQ(deliverUpdate({1}), listing);
}

TEST_F(UpdateDisplay, PrintsTheIdsOfAnUnknownPart) {
  EXPECT_EQ(deliverUpdate({1, 0x00, 0x4d, 0x00, 0x05, 0xff, 0xff}), "/noname-77/noname-5\n");
}

TEST_F(UpdateDisplay, PrintsNothingWhileNotConnected) {
  ASSERT_EQ(scope_.subscribePath({1, 1}), 1);
  ASSERT_EQ(run("cd").result, 1);
  EXPECT_EQ(deliverUpdate({1, 0x00, 0x01, 0x00, 0x01, 0xff, 0xff}), "");
}

TEST_F(UpdateDisplay, PrintsNothingWhileTheUserLeavesTheServer) {
  const std::vector<std::uint8_t> speed{1, 0x00, 0x01, 0x00, 0x01, 0xff, 0xff};
  {
    // The display makes no requests then, so it knows neither names nor elements.
    const ModelClient::Leaving leaving(scope_);
    EXPECT_EQ(deliverUpdate(speed), "");
    EXPECT_EQ(deliverUpdate({1, 0xff, 0xff}), "");
  }
  EXPECT_EQ(deliverUpdate(speed), "/drive/speed\n");
}

TEST_F(UpdateDisplay, IsCalledThroughTheShellsPort) {
  EvtSrv::MemoryHolder data({1, 0, 1, 0xff, 0xff}, 1);
  EvtSrv::MemoryHolder reply;
  EvtSrv::EventPort& port = scope_;
  const KSTD::KThreadMutexLock held(manager_.clientMutex);
  test_support::CapturedOutput captured;
  EXPECT_EQ(port.receive("x", ModelSrv::ModelRoot::EvtTyp_Model_Update, &data, &reply),
            EvtSrv::EvtRes_Success);
  EXPECT_TRUE(captured.take().starts_with("/drive\n+-- speed      [42]\n"));
}

TEST_F(UpdateDisplay, PrintsTheElementsOfAnArray) {
  ASSERT_EQ(run("eu drive/gains").result, 1);
  ASSERT_EQ(server_.gains.setValue(1, 2.5), ModelSrv::ModelRes_Success);
  EXPECT_EQ(takeUpdates(1), "/drive/gains\n+-- [0](p)  [1.5]\n+-- [1](i)  [2.5]\n");
}

TEST_F(UpdateDisplay, PrintsWhatAnotherClientStored) {
  EvtSrv::EventPortManager otherManager(EvtSrv::ConBehave_Void, true);
  TreeScope other(&otherManager, 1);
  ASSERT_EQ(other.connectServer(name_), 1);
  ASSERT_EQ(run("eu -r drive").result, 1);
  ASSERT_EQ(other.writeValue({1, 4}, ElementIndexText{"1"}, "9", false), 1);
  EXPECT_EQ(takeUpdates(1), "/drive/raw\n+-- [0]  [1]\n+-- [1]  [9]\n+-- [2]  [3]\n");
  ASSERT_EQ(run("du drive/raw").result, 1);
  ASSERT_EQ(other.writeValue({1, 4}, ElementIndexText{"1"}, "8", false), 1);
  ASSERT_EQ(other.writeValue({1, 14, 1}, ElementIndexText{""}, "6", false), 1);
  EXPECT_EQ(takeUpdates(1), "/drive/inner/deep\n");
}

TEST_F(UpdateDisplay, ReadsTheMostSignificantByteOfAnIdFirst) {
  EXPECT_EQ(deliverUpdate({1, 0x00, 0x05, 0xff, 0xff}), "/top\n");
}

TEST_F(UpdateDisplay, IsNotDividedByTheOutputOfAnotherThread) {
  constexpr int updates = 500;
  test_support::CapturedOutput captured;
  std::atomic<bool> done{false};
  std::thread other([&] {
    while (!done) {
      std::fputs("other\n", stdout);
    }
  });
  {
    const KSTD::KThreadMutexLock held(manager_.clientMutex);
    for (int update = 0; update < updates; ++update) {
      printUpdate(scope_, {1, 3}, printer_);
    }
  }
  done = true;
  other.join();
  const std::string output = captured.take();
  const std::string whole = "/drive/gains\n+-- [0](p)  [1.5]\n+-- [1](i)  [0.25]\n";
  int found = 0;
  for (std::size_t at = output.find(whole); at != std::string::npos;
       at = output.find(whole, at + 1)) {
    ++found;
  }
  EXPECT_EQ(found, updates);
}

class NameCache : public UpdateDisplay {
 protected:
  void SetUp() override {
    UpdateDisplay::SetUp();
    ASSERT_EQ(scope_.subscribePath(speed_), 1);
    ASSERT_FALSE(areCached());
    ASSERT_EQ(server_.speed.setValue(43), ModelSrv::ModelRes_Success);
    ASSERT_EQ(takeUpdates(1), "/drive/speed\n");
    ASSERT_TRUE(areCached());
  }

  bool areCached() {
    const KSTD::KThreadMutexLock held(manager_.clientMutex);
    return scope_.currentPart()->cachedNames(speed_) != nullptr;
  }

  const IdChain speed_{1, 1};
};

TEST_F(NameCache, IsUsedByTheNextUpdate) {
  ASSERT_EQ(server_.speed.setValue(44), ModelSrv::ModelRes_Success);
  EXPECT_EQ(takeUpdates(1), "/drive/speed\n");
  const KSTD::KThreadMutexLock held(manager_.clientMutex);
  EXPECT_THAT(*scope_.currentPart()->cachedNames(speed_), testing::ElementsAre("drive", "speed"));
}

TEST_F(NameCache, IsValidAsLongAsTheSubscription) {
  ASSERT_EQ(run("eu drive/speed").result, 1);
  EXPECT_FALSE(areCached()) << "the part may be another one";
  ASSERT_EQ(server_.speed.setValue(44), ModelSrv::ModelRes_Success);
  ASSERT_EQ(takeUpdates(1), "/drive/speed\n");
  EXPECT_FALSE(areCached()) << "two subscriptions may be of parts with different names";
  ASSERT_TRUE(scope_.unsubscribePath(speed_));
  ASSERT_EQ(server_.speed.setValue(45), ModelSrv::ModelRes_Success);
  ASSERT_EQ(takeUpdates(1), "/drive/speed\n");
  EXPECT_TRUE(areCached());
  ASSERT_EQ(run("du drive/speed").result, 1);
  EXPECT_FALSE(areCached());
}

TEST_F(NameCache, IsRightForPartsOfDifferentNamesAtOneChain) {
  ModelSrv::ValuePart<int> other(1, "other", 1);
  ASSERT_EQ(server_.drive.remove(&server_.speed), ModelSrv::ModelRes_Success);
  ASSERT_EQ(server_.drive.add(&other), ModelSrv::ModelRes_Success);
  ASSERT_EQ(run("eu drive/other").result, 1);
  ASSERT_EQ(other.setValue(2), ModelSrv::ModelRes_Success);
  EXPECT_EQ(takeUpdates(1), "/drive/other\n");
  ASSERT_EQ(server_.drive.remove(&other), ModelSrv::ModelRes_Success);
  ASSERT_EQ(server_.drive.add(&server_.speed), ModelSrv::ModelRes_Success);
  EXPECT_EQ(takeUpdates(1), "/drive/speed\n");
}

TEST_F(NameCache, IsInvalidatedByAnotherServerBehindTheConnection) {
  server_.end();
  SampleServer other(name_);
  ModelSrv::ValuePart<int> renamed(1, "revolutions", 1);
  ASSERT_EQ(other.drive.remove(&other.speed), ModelSrv::ModelRes_Success);
  ASSERT_EQ(other.drive.add(&renamed), ModelSrv::ModelRes_Success);
  ASSERT_EQ(run("get drive/label").result, 1);
  ASSERT_EQ(renamed.setValue(2), ModelSrv::ModelRes_Success);
  EXPECT_EQ(takeUpdates(1), "/drive/revolutions\n");
  other.end();
}

TEST_F(NameCache, HoldsOnlySubscribedPartsThatTheServerLists) {
  const KSTD::KThreadMutexLock held(manager_.clientMutex);
  ASSERT_EQ(deliverUpdate({1, 0x00, 0x05, 0xff, 0xff}), "/top\n");
  EXPECT_EQ(scope_.currentPart()->cachedNames({5}), nullptr) << "not subscribed";
  scope_.currentPart()->addSubscription({77});
  ASSERT_EQ(deliverUpdate({1, 0x00, 0x4d, 0xff, 0xff}), "/noname-77\n");
  EXPECT_EQ(scope_.currentPart()->cachedNames({77}), nullptr) << "not listed";
}

}  // namespace
}  // namespace treescope::test
