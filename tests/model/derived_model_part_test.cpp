#include "model/derived_model_part.h"

#include <gmock/gmock.h>

#include "evtsrv/event_port_manager.h"
#include "model/model_client.h"

namespace treescope {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class MirrorPart : public testing::Test {
 protected:
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Void, true};
  const KSTD::KThreadMutexLock held_{manager_.clientMutex};
  DerivedModelRoot root_{&manager_};
  DerivedModelPart part_{&root_, "Model_x"};
};

TEST_F(MirrorPart, StartsAtTheRootWithoutSubscriptions) {
  EXPECT_EQ(part_.id(), ModelSrv::ModelPartId_Void);
  EXPECT_EQ(part_.status(), ModelSrv::ModelPartStatus_Void);
  EXPECT_EQ(part_.serverName(), "Model_x");
  EXPECT_EQ(part_.root(), &root_);
  EXPECT_EQ(part_.location(), NamedChain());
  EXPECT_THAT(part_.subscriptions(), IsEmpty());
}

TEST_F(MirrorPart, ConsumesItsTargetFromTheLastIdToTheRoot) {
  part_.setTarget({3, 7, 9});
  EXPECT_EQ(part_.getId(), 9);
  EXPECT_EQ(part_.getParentNode(), &part_);
  EXPECT_EQ(part_.getId(), 7);
  EXPECT_EQ(part_.getParentNode(), &part_);
  EXPECT_EQ(part_.getId(), 3);
  EXPECT_EQ(part_.getParentNode(), &root_);
}

TEST_F(MirrorPart, IsChildZeroOfTheRootWithoutATarget) {
  EXPECT_EQ(part_.getId(), 0);
  EXPECT_EQ(part_.getParentNode(), &root_);
}

TEST_F(MirrorPart, ReplacesTheRestOfATargetByANewTarget) {
  part_.setTarget({1, 2, 3});
  EXPECT_EQ(part_.getId(), 3);
  part_.setTarget({8});
  EXPECT_EQ(part_.getId(), 8);
  EXPECT_EQ(part_.getParentNode(), &root_);
}

TEST_F(MirrorPart, DoesNothingOnAnUpdate) {
  EXPECT_EQ(part_.update(nullptr, 0), ModelSrv::ModelRes_DoNothing);
}

TEST_F(MirrorPart, RemovesOneOfEqualSubscriptions) {
  part_.addSubscription({1});
  part_.addSubscription({2, 3});
  part_.addSubscription({1});
  part_.removeSubscription({1});
  EXPECT_THAT(part_.subscriptions(), ElementsAre(IdChain{2, 3}, IdChain{1}));
  part_.removeSubscription({9});
  EXPECT_EQ(part_.subscriptions().size(), 2U);
}

TEST_F(MirrorPart, IsDetachedFromTheRootByItsDestructor) {
  {
    DerivedModelPart other(&root_, "");
    ASSERT_EQ(root_.add(&other), ModelSrv::ModelRes_Success);
    EXPECT_THAT(root_.children(), ElementsAre(&other));
  }
  EXPECT_THAT(root_.children(), IsEmpty());
}

TEST_F(MirrorPart, HasARootThatIgnoresEveryEvent) {
  EvtSrv::MemoryHolder data({1, 2, 3});
  EvtSrv::MemoryHolder reply;
  EXPECT_EQ(root_.receiveModelEvent("x", 77, &data, &reply), EvtSrv::EvtRes_Success);
  EvtSrv::EventPort& port = root_;
  EXPECT_EQ(port.receiveModelEvent("x", 2, &data, &reply), EvtSrv::EvtRes_Success);
  EXPECT_EQ(data.position(), 0U);
}

}  // namespace
}  // namespace treescope
