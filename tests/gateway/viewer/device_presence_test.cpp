#include "gateway/viewer/device_presence.h"

#include <gmock/gmock.h>

namespace {

using modelgate::DevicePresence;
using std::chrono::milliseconds;
using std::chrono::seconds;
using State = DevicePresence::State;

DevicePresence::Time at(double secondsPassed) {
  return DevicePresence::Time() + seconds(1'000) +
         std::chrono::duration_cast<DevicePresence::Clock::duration>(
             std::chrono::duration<double>(secondsPassed));
}

DevicePresence::Statement online(bool retained, std::uint64_t epoch = 1,
                                 std::uint64_t monotonic = 5) {
  return {true, retained, epoch, monotonic, seconds(10)};
}

class PresenceOfADevice : public testing::Test {
 protected:
  PresenceOfADevice() {
    presence.connected(at(0));
    presence.stated(online(true), at(0));
  }
  void expectSilentAfter(double time) {
    presence.advance(at(time - 0.1));
    EXPECT_EQ(presence.state(), State::online);
    presence.advance(at(time));
    EXPECT_EQ(presence.state(), State::silent);
  }
  DevicePresence presence;
};

TEST(DevicePresence, IsUnknownAtFirst) {
  const DevicePresence presence;
  EXPECT_EQ(presence.state(), State::unknown);
  EXPECT_FALSE(presence.deadline());
}

TEST_F(PresenceOfADevice, IsWhatTheStateSays) {
  EXPECT_TRUE(presence.isReachable());
  presence.stated({}, at(1));
  EXPECT_EQ(presence.state(), State::offline);
  EXPECT_FALSE(presence.isReachable());
  presence.stated(online(false), at(2));
  EXPECT_EQ(presence.state(), State::online);
  presence.cleared();
  EXPECT_EQ(presence.state(), State::offline);
}

TEST(DevicePresence, WasHeardWhenItPublishedTheStateThatTheBrokerKept) {
  DevicePresence presence;
  presence.connected(at(0));
  presence.stated(online(true), at(0));
  EXPECT_EQ(presence.lastHeard(), std::nullopt) << "it is not known when";
  DevicePresence::Statement kept = online(true);
  kept.age = seconds(600);
  presence.stated(kept, at(0));
  EXPECT_EQ(presence.lastHeard(), at(-600));
  EXPECT_EQ(presence.state(), State::online);
  presence.heard(at(5));
  presence.stated(kept, at(10));
  EXPECT_EQ(presence.lastHeard(), at(5));
}

TEST(DevicePresence, WasHeardAtTheLatestWhenItsWillCame) {
  DevicePresence presence;
  presence.stated({}, at(3));
  EXPECT_EQ(presence.lastHeard(), at(3));
  presence.stated({}, at(9));
  EXPECT_EQ(presence.lastHeard(), at(3));
}

TEST_F(PresenceOfADevice, WaitsForNothingWithoutALease) {
  EXPECT_FALSE(presence.deadline());
  presence.advance(at(100'000));
  EXPECT_EQ(presence.state(), State::online);
}

TEST_F(PresenceOfADevice, IsSilentAfterTwoAndAHalfHeartbeatsOfALease) {
  presence.watch(true, at(100));
  presence.heard(at(110));
  EXPECT_EQ(presence.deadline(), at(135));
  expectSilentAfter(135);
}

TEST_F(PresenceOfADevice, CountsFromTheBeginningOfTheLease) {
  presence.watch(true, at(500));
  expectSilentAfter(525);
}

TEST_F(PresenceOfADevice, IsUnreachableAtOnceWithoutABrokerAndSilentLater) {
  presence.disconnected(at(50));
  EXPECT_TRUE(presence.isOnline());
  EXPECT_FALSE(presence.isReachable());
  expectSilentAfter(75);
}

TEST_F(PresenceOfADevice, RepeatedFailuresToConnectDoNotPutItOff) {
  presence.disconnected(at(50));
  presence.disconnected(at(60));
  expectSilentAfter(75);
}

TEST_F(PresenceOfADevice, IsSilentIfABrokerThatRestartedEmptyHasNoStateOfIt) {
  presence.disconnected(at(50));
  presence.connected(at(52));
  expectSilentAfter(77);
}

TEST_F(PresenceOfADevice, AShortLossOfTheBrokerChangesNothing) {
  presence.disconnected(at(50));
  presence.connected(at(52));
  presence.stated(online(true), at(52));
  EXPECT_FALSE(presence.deadline());
  EXPECT_TRUE(presence.isReachable());
}

class SilentDevice : public PresenceOfADevice {
 protected:
  SilentDevice() {
    presence.watch(true, at(0));
    presence.advance(at(26));
    EXPECT_EQ(presence.state(), State::silent);
  }
};

TEST_F(SilentDevice, StaysSilentWithTheStateThatTheBrokerHadKept) {
  presence.stated(online(true), at(30));
  EXPECT_EQ(presence.state(), State::silent);
  EXPECT_TRUE(presence.needsProbe());
}

TEST_F(SilentDevice, IsOnlineWithAnotherRetainedState) {
  presence.stated(online(true, 1, 6), at(30));
  EXPECT_EQ(presence.state(), State::online);
}

TEST_F(SilentDevice, IsOnlineWithANewRun) {
  presence.stated(online(true, 2), at(30));
  EXPECT_EQ(presence.state(), State::online);
}

TEST_F(SilentDevice, IsOnlineWithAnythingThatItSends) {
  presence.heard(at(30));
  EXPECT_EQ(presence.state(), State::online);
  EXPECT_FALSE(presence.needsProbe());
}

TEST_F(SilentDevice, IsNotProbedWithoutAConnection) {
  EXPECT_TRUE(presence.needsProbe());
  presence.disconnected(at(27));
  EXPECT_FALSE(presence.needsProbe());
}

TEST_F(SilentDevice, IsOfflineIfItsStateSaysSo) {
  presence.stated({}, at(30));
  EXPECT_EQ(presence.state(), State::offline);
}

TEST_F(SilentDevice, HasAWholePeriodOnceItIsBack) {
  presence.stated(online(true, 2), at(100));
  EXPECT_EQ(presence.deadline(), at(125));
}

TEST_F(PresenceOfADevice, BoundsTheHeartbeatThatTheStateStates) {
  DevicePresence::Statement hostile = online(false);
  hostile.heartbeat = milliseconds::max();
  presence.stated(hostile, at(0));
  presence.watch(true, at(0));
  EXPECT_EQ(presence.deadline(), at(9'000));
  hostile.heartbeat = milliseconds(0);
  presence.stated(hostile, at(0));
  EXPECT_EQ(presence.deadline(), at(0.05));
}

}  // namespace
