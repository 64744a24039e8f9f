#include "servers/signals.h"

#include <gtest/gtest.h>
#include <signal.h>

namespace modelsrvd {
namespace {

class StopSignals : public testing::Test {
 protected:
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  Signals signals_{manager_};
};

TEST_F(StopSignals, RequestNothingInitially) {
  EXPECT_TRUE(signals_.installed());
  EXPECT_FALSE(signals_.stopRequested());
  EXPECT_FALSE(signals_.takeReloadRequest());
}

TEST_F(StopSignals, RequestAReloadOnce) {
  ASSERT_EQ(::raise(SIGHUP), 0);
  EXPECT_TRUE(signals_.takeReloadRequest());
  EXPECT_FALSE(signals_.takeReloadRequest());
  EXPECT_FALSE(signals_.stopRequested());
}

TEST_F(StopSignals, WakeAManagerThatWaitsWithoutATimeout) {
  ASSERT_EQ(::raise(SIGTERM), 0);
  EXPECT_EQ(manager_.receiveEvent(-1), EvtSrv::EvtRes_Timeout);
  EXPECT_TRUE(signals_.stopRequested());
}

TEST_F(StopSignals, IgnoreAPipeWithoutAReader) {
  ASSERT_EQ(::raise(SIGPIPE), 0);
  EXPECT_FALSE(signals_.stopRequested());
}

TEST(Signals, AreIgnoredAfterDestruction) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  { const Signals signals(manager); }
  ASSERT_EQ(::raise(SIGTERM), 0);
  EXPECT_EQ(manager.receiveEvent(0), EvtSrv::EvtRes_Timeout);
}

}  // namespace
}  // namespace modelsrvd
