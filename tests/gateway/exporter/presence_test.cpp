#include "gateway/exporter/presence.h"

#include <gtest/gtest.h>

namespace {

using modelgate::DeviceState;
using modelgate::Presence;
using Role = Presence::Role;
using std::chrono::seconds;

constexpr std::uint64_t ownEpoch = 7;
const Presence::Clock::time_point presenceStart{std::chrono::hours(1)};

DeviceState stateOf(std::uint64_t epoch, bool online) {
  DeviceState state;
  state.epoch = epoch;
  state.online = online;
  return state;
}

/// One that another exporter has taken over from, and that is looking now.
Presence lookingPresence() {
  Presence presence(ownEpoch);
  presence.takenOver(presenceStart);
  EXPECT_EQ(presence.role(), Role::waiting);
  EXPECT_FALSE(presence.tick(presenceStart + seconds(5)));
  EXPECT_EQ(presence.role(), Role::looking);
  return presence;
}

TEST(Presence, WorksAtFirst) {
  Presence presence(ownEpoch);
  EXPECT_EQ(presence.role(), Role::working);
  EXPECT_FALSE(presence.deadline());
  presence.seen(stateOf(8, true), presenceStart);
  EXPECT_EQ(presence.role(), Role::working);
}

TEST(Presence, StaysPassiveWhileAnotherOneIsOnline) {
  Presence presence = lookingPresence();
  presence.subscribed(presenceStart + seconds(5));
  presence.seen(stateOf(8, true), presenceStart + seconds(6));
  EXPECT_EQ(presence.role(), Role::passive);
  EXPECT_TRUE(presence.tick(presenceStart + seconds(6)));
  EXPECT_FALSE(presence.tick(presenceStart + seconds(7)));
  EXPECT_EQ(presence.deadline(), presenceStart + seconds(36));
  EXPECT_TRUE(presence.tick(presenceStart + seconds(36)));
  presence.seen(stateOf(8, false), presenceStart + seconds(40));
  EXPECT_EQ(presence.role(), Role::working);
}

TEST(Presence, WorksWhenTheStateIsGone) {
  Presence presence = lookingPresence();
  presence.seen(stateOf(8, true), presenceStart + seconds(5));
  presence.seen(std::nullopt, presenceStart + seconds(6));
  EXPECT_EQ(presence.role(), Role::working);
}

TEST(Presence, WorksIfThereIsNoState) {
  Presence presence = lookingPresence();
  EXPECT_FALSE(presence.deadline());
  presence.subscribed(presenceStart + seconds(10));
  EXPECT_EQ(presence.deadline(), presenceStart + seconds(11));
  EXPECT_FALSE(presence.tick(presenceStart + seconds(11)));
  EXPECT_EQ(presence.role(), Role::working);
}

TEST(Presence, LooksAgainAfterItsConnectionWasLost) {
  Presence presence = lookingPresence();
  presence.seen(stateOf(8, true), presenceStart + seconds(5));
  presence.disconnected();
  EXPECT_EQ(presence.role(), Role::looking);
  EXPECT_FALSE(presence.deadline());
  presence.subscribed(presenceStart + seconds(20));
  presence.seen(stateOf(8, true), presenceStart + seconds(20));
  EXPECT_EQ(presence.role(), Role::passive);
}

TEST(Presence, PausesLongerEachTimeItIsTakenOver) {
  Presence presence(ownEpoch);
  Presence::Clock::time_point now = presenceStart;
  for (const int expected : {5, 10, 20, 40, 60, 60}) {
    presence.takenOver(now);
    EXPECT_EQ(presence.deadline(), now + seconds(expected));
    now += seconds(expected);
    EXPECT_FALSE(presence.tick(now));
    presence.seen(std::nullopt, now);
    ASSERT_EQ(presence.role(), Role::working);
  }
  now += std::chrono::minutes(10);
  presence.takenOver(now);
  EXPECT_EQ(presence.deadline(), now + seconds(5));
}

TEST(Presence, IsInConflictForTwoMinutesAfterANote) {
  Presence presence(ownEpoch);
  presence.noted(ownEpoch, presenceStart);
  EXPECT_FALSE(presence.isConflict());
  presence.noted(8, presenceStart);
  EXPECT_TRUE(presence.isConflict());
  presence.noted(8, presenceStart + seconds(30));
  EXPECT_FALSE(presence.tick(presenceStart + seconds(120)));
  EXPECT_TRUE(presence.isConflict());
  EXPECT_FALSE(presence.tick(presenceStart + seconds(150)));
  EXPECT_FALSE(presence.isConflict());
}

}  // namespace
