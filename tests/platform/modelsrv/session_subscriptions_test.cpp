#include "modelsrv/source/session_subscriptions.h"

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/part_access.h"
#include "modelsrv/value_parts.h"
#include "tests/platform/modelsrv/fake_connection.h"

namespace {

using namespace ModelSrv;
using namespace ModelSrv::internal;

using PendingUpdate = std::pair<const ModelPart*, ModelPartIndex>;
using PendingUpdates = std::vector<PendingUpdate>;

class SubscriptionsOfASession : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(root_.add(&speed_), ModelRes_Success);
    ASSERT_EQ(root_.add(&level_), ModelRes_Success);
    ASSERT_EQ(root_.add(&gains_), ModelRes_Success);
  }

  PendingUpdates takeAll() {
    PendingUpdates updates;
    ModelPart* part = nullptr;
    ModelPartIndex index = 0;
    while (session_.takeNext(part, index)) {
      updates.emplace_back(part, index);
    }
    EXPECT_EQ(session_.pendingCount(), 0U);
    return updates;
  }

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, true};
  ModelRoot root_{&manager_};
  ValuePart<std::int32_t> speed_{1, "speed"};
  ValuePart<std::int32_t> level_{2, "level"};
  ArrayPart<std::int32_t> gains_{3, "gains", {0, 0, 0}};
  modelsrv_tests::FakeConnection connection_;
  SessionSubscriptions session_{connection_};
  const std::lock_guard<KSTD::KThreadMutex> lock_{manager_.clientMutex};
};

TEST_F(SubscriptionsOfASession, QueuesUpdatesOfSubscribedPartsOnly) {
  ASSERT_EQ(session_.add(speed_, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(level_.setValue(1), ModelRes_Success);
  EXPECT_EQ(takeAll(), PendingUpdates{});
  EXPECT_EQ(connection_.pendingCalls, 0);
  EXPECT_EQ(speed_.setValue(1), ModelRes_Success);
  EXPECT_EQ(connection_.pendingCalls, 1);
  EXPECT_EQ(takeAll(), (PendingUpdates{{&speed_, ModelPartIndex_All}}));
}

TEST_F(SubscriptionsOfASession, QueuesNoUpdateForTheSameValue) {
  ASSERT_EQ(session_.add(speed_, ModelPartIndex_All), ModelRes_Success);
  ASSERT_EQ(session_.add(gains_, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(speed_.setValue(0), ModelRes_Success);
  EXPECT_EQ(gains_.setValue(1, 0), ModelRes_Success);
  EXPECT_EQ(gains_.setValues({0, 0, 0}), ModelRes_Success);
  EXPECT_EQ(takeAll(), PendingUpdates{});
}

TEST_F(SubscriptionsOfASession, QueuesOneUpdateOfEachIndexInTheOrderOfTheFirstChange) {
  ASSERT_EQ(session_.add(speed_, ModelPartIndex_All), ModelRes_Success);
  ASSERT_EQ(session_.add(level_, ModelPartIndex_All), ModelRes_Success);
  ASSERT_EQ(session_.add(gains_, ModelPartIndex_All), ModelRes_Success);
  for (int i = 1; i <= 1000; ++i) {
    EXPECT_EQ(gains_.setValue(2, i), ModelRes_Success);
    EXPECT_EQ(level_.setValue(i), ModelRes_Success);
    EXPECT_EQ(gains_.setValue(0, i), ModelRes_Success);
    EXPECT_EQ(speed_.setValue(i), ModelRes_Success);
  }
  EXPECT_EQ(session_.queueLength(), 4U);
  EXPECT_EQ(connection_.pendingCalls, 4);
  EXPECT_EQ(takeAll(), (PendingUpdates{{&gains_, 2},
                                       {&level_, ModelPartIndex_All},
                                       {&gains_, 0},
                                       {&speed_, ModelPartIndex_All}}));
  EXPECT_EQ(level_.setValue(0), ModelRes_Success);
  EXPECT_EQ(takeAll(), (PendingUpdates{{&level_, ModelPartIndex_All}}));
}

TEST_F(SubscriptionsOfASession, ToTheWholeValueMatchesEveryElement) {
  ASSERT_EQ(session_.add(gains_, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(gains_.setValue(1, 5), ModelRes_Success);
  EXPECT_EQ(gains_.setValues({1, 5, 0}), ModelRes_Success);
  EXPECT_EQ(gains_.setValues({2, 6, 0}), ModelRes_Success);
  EXPECT_EQ(takeAll(), (PendingUpdates{{&gains_, 1}, {&gains_, 0}, {&gains_, ModelPartIndex_All}}));
}

TEST_F(SubscriptionsOfASession, ToOneElementMatchesItAndTheWholeValue) {
  ASSERT_EQ(session_.add(gains_, 1), ModelRes_Success);
  EXPECT_EQ(gains_.setValue(0, 5), ModelRes_Success);
  EXPECT_EQ(takeAll(), PendingUpdates{});
  EXPECT_EQ(gains_.setValue(1, 5), ModelRes_Success);
  EXPECT_EQ(takeAll(), (PendingUpdates{{&gains_, 1}}));
  EXPECT_EQ(gains_.setValues({6, 6, 6}), ModelRes_Success);
  EXPECT_EQ(takeAll(), (PendingUpdates{{&gains_, ModelPartIndex_All}}));
}

TEST_F(SubscriptionsOfASession, QueuesNoElementWhileTheWholeValueIsPending) {
  ASSERT_EQ(session_.add(gains_, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(gains_.setValues({1, 1, 1}), ModelRes_Success);
  EXPECT_EQ(gains_.setValue(0, 2), ModelRes_Success);
  EXPECT_EQ(takeAll(), (PendingUpdates{{&gains_, ModelPartIndex_All}}));
  EXPECT_EQ(gains_.setValue(0, 3), ModelRes_Success);
  EXPECT_EQ(takeAll(), (PendingUpdates{{&gains_, 0}}));
}

TEST_F(SubscriptionsOfASession, CountsSubscriptionsToTheSameIndex) {
  ASSERT_EQ(session_.add(speed_, ModelPartIndex_All), ModelRes_Success);
  ASSERT_EQ(session_.add(speed_, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(session_.count(), 2U);
  EXPECT_EQ(speed_.setValue(1), ModelRes_Success);
  EXPECT_EQ(takeAll(), (PendingUpdates{{&speed_, ModelPartIndex_All}}))
      << "subscribed twice, but notified once";
  EXPECT_EQ(session_.cancel(speed_, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(speed_.setValue(2), ModelRes_Success);
  EXPECT_EQ(takeAll(), (PendingUpdates{{&speed_, ModelPartIndex_All}}));
  EXPECT_EQ(session_.cancel(speed_, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(speed_.setValue(3), ModelRes_Success);
  EXPECT_EQ(takeAll(), PendingUpdates{});
  EXPECT_EQ(session_.cancel(speed_, ModelPartIndex_All), ModelRes_NotSubscribed);
  EXPECT_EQ(session_.count(), 0U);
}

TEST_F(SubscriptionsOfASession, CancelsByIndex) {
  ASSERT_EQ(session_.add(gains_, ModelPartIndex_All), ModelRes_Success);
  ASSERT_EQ(session_.add(gains_, 2), ModelRes_Success);
  EXPECT_EQ(session_.cancel(gains_, 1), ModelRes_NotSubscribed);
  EXPECT_EQ(session_.cancel(gains_, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(gains_.setValue(0, 1), ModelRes_Success);
  EXPECT_EQ(gains_.setValue(2, 1), ModelRes_Success);
  EXPECT_EQ(takeAll(), (PendingUpdates{{&gains_, 2}}));
}

TEST_F(SubscriptionsOfASession, EndInCallsOfBoundedWork) {
  ASSERT_EQ(session_.add(speed_, ModelPartIndex_All), ModelRes_Success);
  ASSERT_EQ(session_.add(level_, ModelPartIndex_All), ModelRes_Success);
  ASSERT_EQ(root_.remove(&speed_), ModelRes_Success);
  const auto& sleeping = PartAccess::sleepingSessions(root_);
  for (ModelPartId id = 101; id < 2600; ++id) {
    ASSERT_EQ(session_.addSleeping(std::vector{id}, ModelPartIndex_All, sleeping),
              ModelRes_Success);
  }
  for (const std::size_t left : {1500U, 500U, 0U}) {
    EXPECT_EQ(session_.release(), left == 0);
    EXPECT_EQ(session_.count(), left);
  }
}

TEST_F(SubscriptionsOfASession, HasALimit) {
  for (std::size_t i = 0; i < EvtSrv::internal::limits::subscriptionsOfSession; ++i) {
    ASSERT_EQ(session_.add(speed_, ModelPartIndex_All), ModelRes_Success);
  }
  EXPECT_EQ(session_.add(speed_, ModelPartIndex_All), ModelRes_LimitReached);
  EXPECT_EQ(session_.add(level_, ModelPartIndex_All), ModelRes_LimitReached);
  EXPECT_EQ(session_.cancel(speed_, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(session_.add(level_, ModelPartIndex_All), ModelRes_Success);
}

TEST_F(SubscriptionsOfASession, DropsPendingUpdatesWithTheLastCancellation) {
  ASSERT_EQ(session_.add(speed_, ModelPartIndex_All), ModelRes_Success);
  ASSERT_EQ(session_.add(level_, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(speed_.setValue(1), ModelRes_Success);
  EXPECT_EQ(level_.setValue(1), ModelRes_Success);
  EXPECT_EQ(session_.cancel(speed_, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(session_.pendingCount(), 1U);
  EXPECT_EQ(session_.add(speed_, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(takeAll(), (PendingUpdates{{&level_, ModelPartIndex_All}}));
  EXPECT_EQ(speed_.setValue(2), ModelRes_Success);
  EXPECT_EQ(takeAll(), (PendingUpdates{{&speed_, ModelPartIndex_All}}));
}

TEST_F(SubscriptionsOfASession, SleepsWithoutThePartAndDropsItsPendingUpdates) {
  auto node = std::make_unique<ModelNode>(7);
  auto part = std::make_unique<ValuePart<std::int32_t>>(1, "");
  ASSERT_EQ(root_.add(node.get()), ModelRes_Success);
  ASSERT_EQ(node->add(part.get()), ModelRes_Success);
  ASSERT_EQ(session_.add(*part, ModelPartIndex_All), ModelRes_Success);
  ASSERT_EQ(session_.add(*part, ModelPartIndex_All), ModelRes_Success);
  ASSERT_EQ(session_.add(speed_, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(part->setValue(1), ModelRes_Success);
  EXPECT_EQ(speed_.setValue(1), ModelRes_Success);
  node.reset();
  EXPECT_EQ(session_.count(), 3U) << "the part may come back";
  EXPECT_EQ(part->setValue(2), ModelRes_Success);
  part.reset();
  EXPECT_EQ(takeAll(), (PendingUpdates{{&speed_, ModelPartIndex_All}}));
}

TEST_F(SubscriptionsOfASession, KeepsTheQueueOfAClientThatReceivesNothingBounded) {
  for (int i = 1; i <= 100000; ++i) {
    ASSERT_EQ(session_.add(speed_, ModelPartIndex_All), ModelRes_Success);
    ASSERT_EQ(speed_.setValue(i), ModelRes_Success);
    ASSERT_LE(session_.queueLength(), 200U);
    ASSERT_EQ(session_.cancel(speed_, ModelPartIndex_All), ModelRes_Success);
  }
  EXPECT_EQ(takeAll(), PendingUpdates{});
}

TEST_F(SubscriptionsOfASession, IsIndependentOfOtherClients) {
  modelsrv_tests::FakeConnection otherConnection;
  auto other = std::make_unique<SessionSubscriptions>(otherConnection);
  ASSERT_EQ(session_.add(speed_, ModelPartIndex_All), ModelRes_Success);
  ASSERT_EQ(other->add(speed_, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(speed_.setValue(1), ModelRes_Success);
  EXPECT_EQ(otherConnection.pendingCalls, 1);
  other.reset();
  EXPECT_EQ(takeAll(), (PendingUpdates{{&speed_, ModelPartIndex_All}}));
  EXPECT_EQ(speed_.setValue(2), ModelRes_Success);
  EXPECT_EQ(takeAll(), (PendingUpdates{{&speed_, ModelPartIndex_All}}));
}

}  // namespace
