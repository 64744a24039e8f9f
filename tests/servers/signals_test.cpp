#include "servers/signals.h"

#include <gtest/gtest.h>
#include <signal.h>

namespace modelsrvd {
namespace {

class SignalsTest : public testing::Test {
 protected:
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  Signals signals_{manager_};
};

TEST_F(SignalsTest, AskForNothingAtFirst) {
  EXPECT_TRUE(signals_.set());
  EXPECT_FALSE(signals_.ended());
  EXPECT_FALSE(signals_.takeReload());
}

TEST_F(SignalsTest, AskForAReloadOnce) {
  ASSERT_EQ(::raise(SIGHUP), 0);
  EXPECT_TRUE(signals_.takeReload());
  EXPECT_FALSE(signals_.takeReload());
  EXPECT_FALSE(signals_.ended());
}

TEST_F(SignalsTest, WakeTheManagerThatWouldWaitWithoutLimit) {
  ASSERT_EQ(::raise(SIGTERM), 0);
  EXPECT_EQ(manager_.receiveEvent(-1), EvtSrv::EvtRes_Timeout);
  EXPECT_TRUE(signals_.ended());
}

TEST_F(SignalsTest, SurviveAPipeWithoutAReader) {
  ASSERT_EQ(::raise(SIGPIPE), 0);
  EXPECT_FALSE(signals_.ended());
}

TEST(Signals, HaveNoEffectAfterwards) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  { const Signals signals(manager); }
  ASSERT_EQ(::raise(SIGTERM), 0);
  EXPECT_EQ(manager.receiveEvent(0), EvtSrv::EvtRes_Timeout);
}

}  // namespace
}  // namespace modelsrvd
