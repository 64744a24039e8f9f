#include "modelsrv/source/sleeping_subscriptions.h"

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "modelsrv/source/part_access.h"
#include "modelsrv/source/tree_session.h"
#include "tests/platform/modelsrv/fake_connection.h"
#include "tests/platform/modelsrv/served_tree.h"

// Subscriptions of parts that leave the tree and come back.

namespace {

using namespace ModelSrv;
using namespace ModelSrv::internal;
using namespace modelsrv_tests;

using SleepingUpdates = std::vector<std::pair<Chain, ModelPartIndex>>;

/// The tree /disk/usb with the parts size and speeds, and one session.
class SleepingInASession : public testing::Test {
 protected:
  using Number = ValuePart<std::int32_t>;

  SleepingInASession() {
    EXPECT_EQ(root_.add(&disk_), ModelRes_Success);
    EXPECT_EQ(disk_.add(&usb_), ModelRes_Success);
    EXPECT_EQ(usb_.add(&size_), ModelRes_Success);
    EXPECT_EQ(usb_.add(&speeds_), ModelRes_Success);
  }

  ModelRes handle(Operation operation, const Chain& chain, ModelPartIndex index = all) {
    const std::vector<std::uint8_t> payload = payloadOf({operation, chain, index});
    EvtSrv::internal::PayloadReader reader(payload, EvtSrv::internal::nativeOrder);
    std::vector<std::uint8_t> reply;
    return static_cast<ModelRes>(
        session_->handle(static_cast<std::uint16_t>(operation), reader, reply));
  }
  ModelRes subscribe(const Chain& chain, ModelPartIndex index = all) {
    return handle(Operation::subscribe, chain, index);
  }
  ModelRes unsubscribe(const Chain& chain, ModelPartIndex index = all) {
    return handle(Operation::unsubscribe, chain, index);
  }
  ModelRes renew(const Chain& chain, ModelPartIndex index = all) {
    return handle(Operation::renew, chain, index);
  }

  SleepingUpdates takeAll() {
    SleepingUpdates updates;
    std::uint16_t type = 0;
    std::vector<std::uint8_t> payload;
    while (session_->takeEvent(type, payload)) {
      Update update;
      EXPECT_TRUE(decodeUpdate({payload, EvtSrv::internal::nativeOrder}, update));
      updates.emplace_back(update.chain, update.index);
      payload.clear();
    }
    return updates;
  }

  const Chain sizeChain_{4, 2, 1};
  const Chain speedsChain_{4, 2, 5};
  const SleepingUpdates sizeChanged_{{sizeChain_, all}};

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, true};
  ModelRoot root_{&manager_};
  ModelNode disk_{4, "disk"};
  ModelNode usb_{2, "usb"};
  Number size_{1, "size", 10};
  ArrayPart<std::int32_t> speeds_{5, "speeds", {1, 2, 3}};
  FakeConnection connection_;
  std::shared_ptr<SessionShare> share_ = std::make_shared<SessionShare>(root_);
  const std::shared_ptr<SleepingSessions> sleepingSessions_ = PartAccess::sleepingSessions(root_);
  std::unique_ptr<TreeSession> session_ = std::make_unique<TreeSession>(share_, connection_);
  const std::lock_guard<KSTD::KThreadMutex> lock_{manager_.clientMutex};
};

TEST_F(SleepingInASession, DeliversAgainWhenThePartIsPutBack) {
  ASSERT_EQ(subscribe(sizeChain_), ModelRes_Success);
  ASSERT_EQ(usb_.remove(&size_), ModelRes_Success);
  ASSERT_EQ(size_.setValue(11), ModelRes_Success);
  EXPECT_EQ(takeAll(), SleepingUpdates{});
  ASSERT_EQ(usb_.add(&size_), ModelRes_Success);
  EXPECT_EQ(takeAll(), sizeChanged_) << "its value may be another";
  ASSERT_EQ(size_.setValue(12), ModelRes_Success);
  EXPECT_EQ(takeAll(), sizeChanged_);
}

TEST_F(SleepingInASession, DeliversForANewObjectInANewNode) {
  ASSERT_EQ(subscribe(sizeChain_), ModelRes_Success);
  ASSERT_EQ(size_.setValue(11), ModelRes_Success);
  ASSERT_EQ(disk_.remove(&usb_), ModelRes_Success);
  EXPECT_EQ(takeAll(), SleepingUpdates{}) << "the pending update ends with the part";
  ModelNode usb(2, "usb");
  ValuePart<std::string> size(1, "size", "big");
  ASSERT_EQ(disk_.add(&usb), ModelRes_Success);
  EXPECT_EQ(takeAll(), SleepingUpdates{});
  ASSERT_EQ(usb.add(&size), ModelRes_Success);
  EXPECT_EQ(takeAll(), sizeChanged_);
  ASSERT_EQ(size.setValue("small"), ModelRes_Success);
  ASSERT_EQ(size.setValue("tiny"), ModelRes_Success);
  EXPECT_EQ(takeAll(), sizeChanged_);
}

TEST_F(SleepingInASession, DeliversForEachPartOfASubtreeThatComesBackAsAWhole) {
  ASSERT_EQ(subscribe(sizeChain_), ModelRes_Success);
  ASSERT_EQ(subscribe(speedsChain_, 1), ModelRes_Success);
  ASSERT_EQ(subscribe({4, 2}), ModelRes_Success);
  ASSERT_EQ(root_.remove(&disk_), ModelRes_Success);
  ASSERT_EQ(root_.add(&disk_), ModelRes_Success);
  EXPECT_EQ(takeAll(), (SleepingUpdates{{sizeChain_, all}, {speedsChain_, all}}))
      << "a node has no value";
  ASSERT_EQ(speeds_.setValue(0, 9), ModelRes_Success);
  ASSERT_EQ(speeds_.setValue(1, 9), ModelRes_Success);
  EXPECT_EQ(takeAll(), (SleepingUpdates{{speedsChain_, 1}}));
}

TEST_F(SleepingInASession, CoalescesTheReturnWithTheChangesAfterIt) {
  ASSERT_EQ(subscribe(speedsChain_), ModelRes_Success);
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(usb_.remove(&speeds_), ModelRes_Success);
    ASSERT_EQ(usb_.add(&speeds_), ModelRes_Success);
    ASSERT_EQ(speeds_.setValue(2, i + 10), ModelRes_Success);
  }
  EXPECT_EQ(takeAll(), (SleepingUpdates{{speedsChain_, all}}));
}

TEST_F(SleepingInASession, DeliversNothingForAPartOfAnotherName) {
  ASSERT_EQ(subscribe(sizeChain_), ModelRes_Success);
  ASSERT_EQ(usb_.remove(&size_), ModelRes_Success);
  {
    Number other(1, "free");
    ASSERT_EQ(usb_.add(&other), ModelRes_Success);
    ASSERT_EQ(other.setValue(1), ModelRes_Success);
    EXPECT_EQ(takeAll(), SleepingUpdates{});
  }
  ASSERT_EQ(usb_.add(&size_), ModelRes_Success);
  EXPECT_EQ(takeAll(), sizeChanged_);
}

TEST_F(SleepingInASession, DeliversNothingBelowANodeOfAnotherName) {
  ASSERT_EQ(subscribe(sizeChain_), ModelRes_Success);
  ASSERT_EQ(disk_.remove(&usb_), ModelRes_Success);
  {
    ModelNode other(2, "card");
    Number size(1, "size");
    ASSERT_EQ(other.add(&size), ModelRes_Success);
    ASSERT_EQ(disk_.add(&other), ModelRes_Success);
    ASSERT_EQ(size.setValue(1), ModelRes_Success);
    EXPECT_EQ(takeAll(), SleepingUpdates{});
  }
  ASSERT_EQ(disk_.add(&usb_), ModelRes_Success);
  EXPECT_EQ(takeAll(), sizeChanged_);
}

TEST_F(SleepingInASession, DistinguishesNamesThatAreEqualWhenJoined) {
  ModelNode outer(9, "a");
  Number inner(1, "bc");
  ASSERT_EQ(outer.add(&inner), ModelRes_Success);
  ASSERT_EQ(root_.add(&outer), ModelRes_Success);
  ASSERT_EQ(subscribe({9, 1}), ModelRes_Success);
  ASSERT_EQ(root_.remove(&outer), ModelRes_Success);
  ModelNode otherOuter(9, "ab");
  Number otherInner(1, "c");
  ASSERT_EQ(otherOuter.add(&otherInner), ModelRes_Success);
  ASSERT_EQ(root_.add(&otherOuter), ModelRes_Success);
  EXPECT_EQ(takeAll(), SleepingUpdates{});
}

TEST_F(SleepingInASession, IsCancelledWithSuccess) {
  ASSERT_EQ(subscribe(sizeChain_), ModelRes_Success);
  ASSERT_EQ(subscribe(sizeChain_), ModelRes_Success);
  ASSERT_EQ(subscribe(speedsChain_, 2), ModelRes_Success);
  ASSERT_EQ(disk_.remove(&usb_), ModelRes_Success);
  EXPECT_EQ(unsubscribe(sizeChain_, 0), ModelRes_NoSuchPart);
  EXPECT_EQ(unsubscribe(sizeChain_), ModelRes_Success);
  EXPECT_EQ(unsubscribe(speedsChain_, 2), ModelRes_Success);
  EXPECT_EQ(unsubscribe(speedsChain_, 2), ModelRes_NoSuchPart);
  ASSERT_EQ(disk_.add(&usb_), ModelRes_Success);
  EXPECT_EQ(takeAll(), sizeChanged_) << "one of two is left";
  EXPECT_EQ(unsubscribe(sizeChain_), ModelRes_Success);
  EXPECT_EQ(unsubscribe(sizeChain_), ModelRes_NotSubscribed);
}

TEST_F(SleepingInASession, IsCancelledWhileAnotherPartHasTheChain) {
  ASSERT_EQ(subscribe(sizeChain_), ModelRes_Success);
  ASSERT_EQ(usb_.remove(&size_), ModelRes_Success);
  Number other(1, "free");
  ASSERT_EQ(usb_.add(&other), ModelRes_Success);
  ASSERT_EQ(subscribe(sizeChain_), ModelRes_Success);
  EXPECT_EQ(unsubscribe(sizeChain_), ModelRes_Success);
  ASSERT_EQ(other.setValue(1), ModelRes_Success);
  EXPECT_EQ(takeAll(), SleepingUpdates{}) << "that of the present part ends first";
  EXPECT_EQ(unsubscribe(sizeChain_), ModelRes_Success);
  EXPECT_EQ(unsubscribe(sizeChain_), ModelRes_NotSubscribed);
}

TEST_F(SleepingInASession, WakesUpForTheChildrenThatANodeIsGiven) {
  ASSERT_EQ(subscribe(sizeChain_), ModelRes_Success);
  ASSERT_EQ(subscribe(speedsChain_), ModelRes_Success);
  ValuePart<bool> size(1, "size");
  ASSERT_EQ(usb_.setChildren({&speeds_, &size}), ModelRes_Success);
  EXPECT_EQ(takeAll(), sizeChanged_) << "the other one has stayed";
  ASSERT_EQ(usb_.setChildren({&size, &speeds_}), ModelRes_Success);
  EXPECT_EQ(takeAll(), SleepingUpdates{});
  ASSERT_EQ(size.setValue(true), ModelRes_Success);
  ASSERT_EQ(speeds_.setValue(0, 9), ModelRes_Success);
  EXPECT_EQ(takeAll(), (SleepingUpdates{{sizeChain_, all}, {speedsChain_, 0}}));
}

TEST_F(SleepingInASession, CannotBeBegunWithASubscription) {
  ASSERT_EQ(usb_.remove(&size_), ModelRes_Success);
  EXPECT_EQ(subscribe(sizeChain_), ModelRes_NoSuchPart);
  ASSERT_EQ(usb_.add(&size_), ModelRes_Success);
  EXPECT_EQ(takeAll(), SleepingUpdates{});
}

TEST_F(SleepingInASession, BeginsWithTheRenewalOfAnAbsentPart) {
  ASSERT_EQ(disk_.remove(&usb_), ModelRes_Success);
  EXPECT_EQ(renew(sizeChain_), ModelRes_Success);
  EXPECT_EQ(renew(speedsChain_, 7), ModelRes_Success) << "the number of elements is not known";
  EXPECT_EQ(renew(sizeChain_, ModelPartIndex_Void), ModelRes_NoSuchIndex);
  EXPECT_EQ(renew({77}), ModelRes_Success);
  EXPECT_EQ(unsubscribe({77}), ModelRes_Success);
  EXPECT_EQ(renew({4, ModelPartId_Void}), ModelRes_NoSuchPart) << "no part ever has that id";
  EXPECT_EQ(renew({4, 2, ModelPartId_Max}), ModelRes_Success);
  ASSERT_EQ(disk_.add(&usb_), ModelRes_Success);
  EXPECT_EQ(takeAll(), (SleepingUpdates{{sizeChain_, all}, {speedsChain_, all}}));
  ASSERT_EQ(usb_.remove(&size_), ModelRes_Success);
  Number other(1, "free");
  ASSERT_EQ(usb_.add(&other), ModelRes_Success);
  EXPECT_EQ(takeAll(), SleepingUpdates{}) << "it is of the part that came first";
}

TEST_F(SleepingInASession, RenewsAsItSubscribesIfThePartIsThereAndQueuesAnUpdate) {
  EXPECT_EQ(renew(sizeChain_), ModelRes_Success);
  EXPECT_EQ(renew({4, 2}), ModelRes_Success);
  EXPECT_EQ(renew(speedsChain_, 3), ModelRes_NoSuchIndex);
  speeds_.setSubscribable(false);
  EXPECT_EQ(renew(speedsChain_), ModelRes_NotSubscribable);
  EXPECT_EQ(takeAll(), sizeChanged_) << "the part may have appeared just now; a node has no value";
  ASSERT_EQ(size_.setValue(1), ModelRes_Success);
  EXPECT_EQ(takeAll(), sizeChanged_);
}

TEST_F(SleepingInASession, SleepsUntilThePartIsSubscribable) {
  ASSERT_EQ(usb_.remove(&size_), ModelRes_Success);
  ASSERT_EQ(renew(sizeChain_), ModelRes_Success);
  size_.setSubscribable(false);
  ASSERT_EQ(usb_.add(&size_), ModelRes_Success);
  ASSERT_EQ(size_.setValue(11), ModelRes_Success);
  EXPECT_EQ(takeAll(), SleepingUpdates{});
  ASSERT_EQ(usb_.remove(&size_), ModelRes_Success);
  size_.setSubscribable(true);
  ASSERT_EQ(usb_.add(&size_), ModelRes_Success);
  EXPECT_EQ(takeAll(), sizeChanged_);
}

TEST_F(SleepingInASession, WakesUpForAnObjectThatIsNotSubscribableOnlyIfItWasOfThatObject) {
  ASSERT_EQ(subscribe(sizeChain_), ModelRes_Success);
  size_.setSubscribable(false);
  ASSERT_EQ(usb_.remove(&size_), ModelRes_Success);
  {
    Number other(1, "size");
    other.setSubscribable(false);
    ASSERT_EQ(usb_.add(&other), ModelRes_Success);
    EXPECT_EQ(takeAll(), SleepingUpdates{}) << "another object";
  }
  ASSERT_EQ(usb_.add(&size_), ModelRes_Success);
  EXPECT_EQ(takeAll(), sizeChanged_) << "existing subscriptions are not affected";
}

TEST_F(SleepingInASession, UsesTheMemoryOfTheAccount) {
  using EvtSrv::internal::limits::bytesOfSession;
  ASSERT_EQ(subscribe(sizeChain_), ModelRes_Success);
  ASSERT_TRUE(connection_.account().add(bytesOfSession));
  EXPECT_EQ(renew({77}), ModelRes_LimitReached);
  EXPECT_EQ(unsubscribe({77}), ModelRes_NoSuchPart);
  ASSERT_EQ(usb_.remove(&size_), ModelRes_Success);
  EXPECT_EQ(connection_.closeCalls, 1) << "the client must notice";
  EXPECT_EQ(unsubscribe(sizeChain_), ModelRes_Success);
  connection_.account().remove(bytesOfSession);
  ASSERT_EQ(renew({77}), ModelRes_Success);
  EXPECT_FALSE(connection_.account().allows(bytesOfSession));
  ASSERT_EQ(unsubscribe({77}), ModelRes_Success);
  EXPECT_TRUE(connection_.account().allows(bytesOfSession));
}

TEST_F(SleepingInASession, IsRefusedAndNotClosedJustBelowTheLimitOfTheAccount) {
  EvtSrv::internal::SessionAccount& account = connection_.account();
  ASSERT_TRUE(account.add(EvtSrv::internal::limits::bytesOfSession));
  for (std::size_t space = 0; space < 300; ++space) {
    if (renew({77}) == ModelRes_Success) {
      EXPECT_EQ(unsubscribe({77}), ModelRes_Success);
    }
    ASSERT_EQ(connection_.closeCalls, 0) << space << " bytes below the limit";
    account.remove(1);
  }
  EXPECT_EQ(renew({77}), ModelRes_Success);
}

TEST_F(SleepingInASession, CountsAsASubscription) {
  SessionSubscriptions subscriptions(connection_);
  for (std::size_t i = 0; i < EvtSrv::internal::limits::subscriptionsOfSession; ++i) {
    ASSERT_EQ(subscriptions.add(size_, all), ModelRes_Success);
  }
  ASSERT_EQ(usb_.remove(&size_), ModelRes_Success);
  EXPECT_EQ(subscriptions.count(), EvtSrv::internal::limits::subscriptionsOfSession);
  EXPECT_EQ(subscriptions.add(speeds_, all), ModelRes_LimitReached);
  EXPECT_EQ(subscriptions.addSleeping(Chain{7}, all, sleepingSessions_), ModelRes_LimitReached);
  EXPECT_EQ(subscriptions.cancelSleeping(sizeChain_, all), ModelRes_Success);
  EXPECT_EQ(subscriptions.addSleeping(Chain{7}, all, sleepingSessions_), ModelRes_Success);
  EXPECT_EQ(subscriptions.addSleeping(Chain{7}, all, sleepingSessions_), ModelRes_LimitReached);
  ASSERT_EQ(usb_.add(&size_), ModelRes_Success);
  EXPECT_EQ(subscriptions.count(), EvtSrv::internal::limits::subscriptionsOfSession);
}

TEST_F(SleepingInASession, TakesBoundedMemory) {
  SleepingSubscriptions sleeping;
  Chain chain(ModelDepth_Max, 1);
  std::size_t added = 0;
  while (sleeping.add(chain, all)) {
    ASSERT_LT(++added, 10'000U);
    ++chain.back();
  }
  EXPECT_GT(added, 1'000U);
  EXPECT_LE(sleeping.bytes(), SleepingSubscriptions::maxBytes);
  EXPECT_FALSE(sleeping.add({chain, std::string(100, 'x')}, {}, size_));
  EXPECT_TRUE(sleeping.cancel(Chain(ModelDepth_Max, 1), all));
  EXPECT_TRUE(sleeping.add(chain, all));
  while (added-- > 0) {
    EXPECT_TRUE(sleeping.cancel(chain, all));
    --chain.back();
  }
  EXPECT_TRUE(sleeping.isEmpty());
  EXPECT_EQ(sleeping.bytes(), 0U);
}

TEST_F(SleepingInASession, ClosesTheConnectionIfItWouldTakeTooMuchMemory) {
  constexpr std::size_t tooMany = SleepingSubscriptions::maxBytes / ModelName_Max + 1;
  std::vector<std::unique_ptr<Number>> parts;
  for (std::size_t id = 10; id < 10 + tooMany; ++id) {
    parts.push_back(
        std::make_unique<Number>(static_cast<ModelPartId>(id), std::string(ModelName_Max, 'x')));
    ASSERT_EQ(usb_.add(parts.back().get()), ModelRes_Success);
    ASSERT_EQ(subscribe({4, 2, static_cast<ModelPartId>(id)}), ModelRes_Success);
  }
  ASSERT_EQ(disk_.remove(&usb_), ModelRes_Success);
  EXPECT_GE(connection_.closeCalls, 1);
  ASSERT_EQ(disk_.add(&usb_), ModelRes_Success);
}

TEST_F(SleepingInASession, MayOutliveTheRoot) {
  SessionSubscriptions subscriptions(connection_);
  {
    EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, true);
    ModelRoot root(&manager);
    Number part(1, "part");
    const std::lock_guard<KSTD::KThreadMutex> lock(manager.clientMutex);
    ASSERT_EQ(root.add(&part), ModelRes_Success);
    ASSERT_EQ(subscriptions.add(part, all), ModelRes_Success);
    ASSERT_EQ(root.remove(&part), ModelRes_Success);
  }
  EXPECT_EQ(subscriptions.count(), 1U);
  EXPECT_EQ(subscriptions.cancelSleeping(Chain{1}, all), ModelRes_Success);
}

TEST_F(SleepingInASession, EndsWithTheSession) {
  ASSERT_EQ(subscribe(sizeChain_), ModelRes_Success);
  ASSERT_EQ(usb_.remove(&size_), ModelRes_Success);
  session_.reset();
  ASSERT_EQ(usb_.add(&size_), ModelRes_Success);
  EXPECT_EQ(connection_.pendingCalls, 0);
}

TEST_F(SleepingInASession, IsIndependentOfOtherSessions) {
  FakeConnection connection;
  auto other = std::make_unique<TreeSession>(share_, connection);
  std::swap(session_, other);
  ASSERT_EQ(subscribe(sizeChain_), ModelRes_Success);
  std::swap(session_, other);
  ASSERT_EQ(subscribe(speedsChain_), ModelRes_Success);
  ASSERT_EQ(disk_.remove(&usb_), ModelRes_Success);
  EXPECT_EQ(unsubscribe(sizeChain_), ModelRes_NoSuchPart);
  ASSERT_EQ(disk_.add(&usb_), ModelRes_Success);
  EXPECT_EQ(takeAll(), (SleepingUpdates{{speedsChain_, all}}));
  EXPECT_EQ(connection.pendingCalls, 1);
}

}  // namespace
