#include "modelsrv/source/client_subscriptions.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace {

using namespace ModelSrv;
using namespace ModelSrv::internal;

using Chain = std::vector<ModelPartId>;
using Key = ClientSubscriptions::Key;

class SubscriptionsOfAClient : public testing::Test {
 protected:
  Key add(ModelPart& part, const Chain& chain, ModelPartIndex index = ModelPartIndex_All) {
    subscriptions_.add({&part, chain, nullptr, index});
    return subscriptions_.lastOf(part, chain).value_or(0);
  }

  ModelPart first_;
  ModelPart second_;
  ClientSubscriptions subscriptions_;
};

TEST_F(SubscriptionsOfAClient, FindsTheLastOfAPartAndChain) {
  const Key one = add(first_, {1}, 0);
  const Key two = add(first_, {1}, 5);
  const Key three = add(second_, {1});
  EXPECT_LT(one, two);
  EXPECT_EQ(subscriptions_.lastOf(first_, {1}), two);
  EXPECT_EQ(subscriptions_.lastOf(second_, {1}), three);
  EXPECT_EQ(subscriptions_.lastOf(second_, {1, 2}), std::nullopt);
  subscriptions_.erase(two);
  EXPECT_EQ(subscriptions_.lastOf(first_, {1}), one);
  subscriptions_.erase(one);
  EXPECT_EQ(subscriptions_.lastOf(first_, {1}), std::nullopt);
  EXPECT_EQ(subscriptions_.anyOf(first_), std::nullopt);
  EXPECT_TRUE(subscriptions_.hasAny({1}));
  subscriptions_.erase(three);
  subscriptions_.erase(three);
  EXPECT_FALSE(subscriptions_.hasAny({1}));
}

TEST_F(SubscriptionsOfAClient, FindsEachSubscribedPartOnce) {
  const Key element = add(first_, {1}, 3);
  const Key whole = add(second_, {1});
  add(second_, {1});
  add(second_, {2});
  EXPECT_EQ(subscriptions_.matching({1}, 3), (std::vector<Key>{element, whole}));
  EXPECT_EQ(subscriptions_.matching({1}, 4), (std::vector<Key>{whole}));
  EXPECT_EQ(subscriptions_.matching({1}, ModelPartIndex_All), (std::vector<Key>{element, whole}));
  EXPECT_TRUE(subscriptions_.matching({}, ModelPartIndex_All).empty());
}

TEST_F(SubscriptionsOfAClient, RenewsInTheOrderOfSubscribing) {
  const Key one = add(first_, {3});
  const Key two = add(second_, {1});
  const Key three = add(first_, {2});
  EXPECT_EQ(subscriptions_.firstLost(), std::nullopt);
  subscriptions_.markAllLost();
  EXPECT_EQ(subscriptions_.firstLost(), one);
  EXPECT_TRUE(subscriptions_.isLost(two));
  subscriptions_.markRenewed(one);
  EXPECT_EQ(subscriptions_.firstLost(), two);
  subscriptions_.erase(two);
  EXPECT_EQ(subscriptions_.firstLost(), three);
  subscriptions_.markRenewed(three);
  EXPECT_EQ(subscriptions_.firstLost(), std::nullopt);
  EXPECT_FALSE(subscriptions_.isLost(one));
}

TEST_F(SubscriptionsOfAClient, KeepsWhatWasRefusedForTheNextConnection) {
  const Key one = add(first_, {3});
  const Key two = add(second_, {1});
  subscriptions_.markAllLost();
  subscriptions_.markRefused(one);
  EXPECT_EQ(subscriptions_.firstLost(), two);
  subscriptions_.markRenewed(two);
  EXPECT_EQ(subscriptions_.firstLost(), std::nullopt);
  EXPECT_TRUE(subscriptions_.isLost(one));
  EXPECT_FALSE(subscriptions_.isLost(two));
  EXPECT_EQ(subscriptions_.lastOf(first_, {3}), one);
  subscriptions_.markAllLost();
  EXPECT_EQ(subscriptions_.firstLost(), one);
  subscriptions_.markRenewed(one);
  EXPECT_FALSE(subscriptions_.isLost(one));
}

TEST_F(SubscriptionsOfAClient, HasNothingAfterClear) {
  add(first_, {3});
  subscriptions_.clear();
  EXPECT_FALSE(subscriptions_.hasAny({3}));
  EXPECT_EQ(subscriptions_.anyOf(first_), std::nullopt);
  subscriptions_.markAllLost();
  EXPECT_EQ(subscriptions_.firstLost(), std::nullopt);
}

}  // namespace
