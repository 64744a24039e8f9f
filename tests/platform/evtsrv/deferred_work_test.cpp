#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "tests/platform/evtsrv/evtsrv_fixture.h"
#include "tests/platform/evtsrv/poll_loop.h"

namespace EvtSrv::internal {
namespace {

class Work : public DeferredWork {
 public:
  bool runDeferred() override {
    ++runs;
    // It may destroy this object.
    const std::function<void()> action = onRun;
    const bool result = callsProgram;
    if (action) {
      action();
    }
    return result;
  }
  int runs = 0;
  bool callsProgram = true;
  std::function<void()> onRun;
};

class Deferred : public testing::Test {
 protected:
  void defer(Work& work) {
    const std::lock_guard lock(mutex);
    core.clientMutex().assertHeld();
    core.defer(work);
  }
  evtsrv_tests::PollLoop loop() {
    return {core.pollDescriptor(), [this] { static_cast<void>(core.receive(0)); }};
  }

  TestSystem system;
  KSTD::KThreadMutex mutex;
  ManagerCore core{system, mutex, true};
};

TEST_F(Deferred, WorkIsAnnouncedAndRunOnceByTheNextDispatch) {
  Work work;
  EXPECT_FALSE(loop().isReadable());
  defer(work);
  defer(work);
  EXPECT_TRUE(loop().isReadable());
  EXPECT_EQ(core.receive(-1), EvtRes_Success);
  EXPECT_FALSE(loop().isReadable());
  EXPECT_EQ(core.receive(0), EvtRes_Timeout);
  EXPECT_EQ(work.runs, 1);
}

TEST_F(Deferred, WorkThatDefersItselfRunsOncePerDispatch) {
  Work work;
  work.onRun = [&] {
    if (work.runs < 3) {
      core.clientMutex().assertHeld();
      core.defer(work);
    }
  };
  defer(work);
  EXPECT_EQ(core.receive(0), EvtRes_Success);
  EXPECT_EQ(work.runs, 1);
  EXPECT_TRUE(loop().isReadable());
  EXPECT_EQ(loop().runUntilQuiet(), 2);
  EXPECT_EQ(work.runs, 3);
}

TEST_F(Deferred, WorkThatIsDestroyedIsNotRun) {
  auto first = std::make_unique<Work>();
  Work second;
  Work third;
  defer(*first);
  defer(second);
  defer(third);
  first.reset();
  EXPECT_EQ(core.receive(0), EvtRes_Success);
  EXPECT_EQ(second.runs, 1);
  EXPECT_EQ(third.runs, 1);
}

TEST_F(Deferred, WorkMayDestroyOtherWorkAndItself) {
  auto first = std::make_unique<Work>();
  auto second = std::make_unique<Work>();
  first->onRun = [&] {
    second.reset();
    first.reset();
  };
  defer(*first);
  defer(*second);
  EXPECT_EQ(core.receive(0), EvtRes_Success);
  EXPECT_EQ(core.receive(0), EvtRes_Timeout);
}

TEST_F(Deferred, WorkAfterOneThatThrowsRunsAtTheNextDispatch) {
  Work first;
  Work second;
  first.onRun = [] { throw std::runtime_error("of the program"); };
  defer(first);
  defer(second);
  EXPECT_THROW(static_cast<void>(core.receive(0)), std::runtime_error);
  EXPECT_EQ(second.runs, 0);
  EXPECT_TRUE(loop().isReadable());
  EXPECT_EQ(core.receive(0), EvtRes_Success);
  EXPECT_EQ(second.runs, 1);
}

TEST_F(Deferred, WorkThatCallsNoProgramDoesNotEndAWait) {
  Work work;
  work.callsProgram = false;
  defer(work);
  EXPECT_EQ(core.receive(0), EvtRes_Timeout);
  EXPECT_EQ(work.runs, 1);
}

TEST_F(Deferred, WorkLeavesAWakeToTheProgram) {
  Work work;
  work.callsProgram = false;
  defer(work);
  core.wake();
  EXPECT_TRUE(loop().isReadable());
  EXPECT_EQ(core.receive(-1), EvtRes_Timeout) << "woken";
  EXPECT_EQ(work.runs, 1);
  EXPECT_FALSE(loop().isReadable());
}

}  // namespace
}  // namespace EvtSrv::internal
